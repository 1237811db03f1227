#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/FileAttributes.h"
#include "scan/ScanTest.h"

namespace kavaro {
namespace {

constexpr double kThen = 1000000000;

// The real disk: /folder/file and /folder/sub below a temporary folder, and their nodes.
class ChangesTest : public ScanTest {
  protected:
    ChangesTest() {
        ScanSession::setCatalogFactory({});
        _temp.makeFolder("folder");
        _temp.makeFolder("folder/sub");
        _temp.write("folder/file", "four");
        modify("folder/file", kThen);
        EXPECT_TRUE(_folder->loadNodes());
        _file = _folder->files()->nodeAtIndex(0);
        _sub = _folder->folders()->folderAtIndex(0);
    }

    void modify(std::string_view name, double seconds) const {
        const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(seconds), 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, _temp.path(name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
    static PropertyList attributes(const TuvNode& node) {
        return fileAttributesAtPath(std::string(node.filePath()), false);
    }
    static PropertyList with(PropertyList attributes, const char* key, PropertyList value) {
        attributes.set(key, std::move(value));
        return attributes;
    }
    static PropertyList without(PropertyList attributes, const char* key) {
        attributes.remove(key);
        return attributes;
    }
    static PropertyList dates(double created, double modified) {
        return with(with({}, kFileCreationDate, PropertyList::Date{created}), kFileModificationDate,
                    PropertyList::Date{modified});
    }
    // What the node says to these attributes, with the texts of its log.
    Texts textsOfChange(TuvNode& node, const PropertyList& cached, bool expected, LogLevel level = LogLevel::info) {
        ModelLogs logs(level);
        EXPECT_EQ(node.hasFileSytemChanged(cached, 0), expected);
        return textsOf(logs, level);
    }
    std::string path(std::string_view name) const { return _temp.path(name); }

    TempFolder _temp;
    TuvRef<TuvDirNode> _folder = folderNode(_temp.path("folder"));
    TuvNode* _file = nullptr;
    TuvDirNode* _sub = nullptr;
};

TEST_F(ChangesTest, OfTwoDatesTheReferenceMustBeTheEarlierOne) {
    ModelLogs logs;
    EXPECT_FALSE(TuvNode::hasFileSytemChanged(2.0, 2.0, "/p", "date"));
    EXPECT_FALSE(TuvNode::hasFileSytemChanged(2.0, 3.0, "/p", "date"));
    EXPECT_FALSE(TuvNode::hasFileSytemChanged(std::nullopt, 1.0, "/p", "date"));
    EXPECT_FALSE(TuvNode::hasFileSytemChanged(1.0, std::nullopt, "/p", "date"));
    EXPECT_FALSE(TuvNode::hasFileSytemChanged(std::nullopt, std::nullopt, "/p", "date"));
    EXPECT_EQ(logs->count(""), 0);
    EXPECT_TRUE(TuvNode::hasFileSytemChanged(2.0, 1.0, "/p", "date"));
    EXPECT_EQ(logs.lines(), Texts{"TuvNode hasFileSytemChanged: YEP, the date has changed !!! \"/p\""});
}

TEST_F(ChangesTest, TheSameDatesAreNoChange) {
    EXPECT_EQ(textsOfChange(*_file, attributes(*_file), false), Texts{});
    EXPECT_EQ(textsOfChange(*_folder, attributes(*_folder), false), Texts{});
}

TEST_F(ChangesTest, AFileThatWasModified) {
    const PropertyList cached = attributes(*_file);
    modify("folder/file", kThen + 1);
    EXPECT_EQ(textsOfChange(*_file, cached, true),
              Texts{"YEP, the modification date has changed !!! \"" + path("folder/file") + "\""});
    modify("folder/file", kThen - 1);
    EXPECT_EQ(textsOfChange(*_file, cached, false), Texts{});
}

// Needs a birth time, which every file system of the last years keeps.
TEST_F(ChangesTest, AFileThatWasMadeAgain) {
    ASSERT_NE(attributes(*_file).get(kFileCreationDate), nullptr);
    const Texts expected{"YEP, the creation date has changed !!! \"" + path("folder/file") + "\""};
    EXPECT_EQ(textsOfChange(*_file, dates(kThen, kThen), true), expected);
    // The other date is not looked at, whatever it says.
    EXPECT_EQ(textsOfChange(*_file, dates(kThen, kThen - 5), true), expected);
    EXPECT_EQ(textsOfChange(*_file, without(dates(kThen, 0), kFileModificationDate), true), expected);
    EXPECT_EQ(textsOfChange(*_file, dates(1e12, kThen - 5), true),
              Texts{"YEP, the modification date has changed !!! \"" + path("folder/file") + "\""});
}

TEST_F(ChangesTest, DatesThatAreMissingAreNoChange) {
    EXPECT_EQ(textsOfChange(*_file, PropertyList(), false), Texts{});
    EXPECT_EQ(textsOfChange(*_file, PropertyList("no dictionary"), false), Texts{});
    EXPECT_EQ(textsOfChange(*_file, without(attributes(*_file), kFileModificationDate), false), Texts{});
    const PropertyList noDates = with(with({}, kFileCreationDate, 0), kFileModificationDate, "2001-01-01");
    EXPECT_EQ(textsOfChange(*_file, noDates, false), Texts{});
    // A modification date alone is enough.
    const PropertyList older = with({}, kFileModificationDate, PropertyList::Date{kThen - 1});
    EXPECT_EQ(textsOfChange(*_file, older, true).size(), 1u);
}

TEST_F(ChangesTest, AFinalLinkIsNotFollowed) {
    ASSERT_EQ(symlink("file", path("folder/link").c_str()), 0);
    modify("folder/link", kThen);
    TuvNode* link = addFile(_folder.get(), newFile(77, "link"));
    const PropertyList cached = attributes(*link);
    modify("folder/file", kThen + 100);
    EXPECT_EQ(textsOfChange(*link, cached, false), Texts{});
    modify("folder/link", kThen + 100);
    EXPECT_EQ(textsOfChange(*link, cached, true).size(), 1u);
}

TEST_F(ChangesTest, AFileThatBecameAFolderAndTheReverse) {
    const PropertyList cached = attributes(*_file);
    ASSERT_EQ(unlink(path("folder/file").c_str()), 0);
    _temp.makeFolder("folder/file");
    EXPECT_EQ(textsOfChange(*_file, cached, true), Texts{"YEP !!! " + path("folder/file")});

    ASSERT_EQ(rmdir(path("folder/sub").c_str()), 0);
    _temp.write("folder/sub", "");
    addFile(_sub, newFile(78, "inside"));
    // The folder lists itself again, as one that is none: it has no files any more.
    EXPECT_EQ(textsOfChange(*_sub, PropertyList(), true),
              (Texts{"YEP !!! " + path("folder/sub"), "YEP !!! " + path("folder/sub"), "[" + path("folder/sub") + "]",
                     "[" + path("folder/sub") + "]", "Removed [" + path("folder/sub/inside") + "]",
                     "Merged [" + path("folder/sub") + "]"}));
    EXPECT_EQ(_sub->fileCount(), 0);
}

TEST_F(ChangesTest, AnEntryThatIsGone) {
    const PropertyList cached = attributes(*_file);
    ASSERT_EQ(unlink(path("folder/file").c_str()), 0);
    EXPECT_EQ(textsOfChange(*_file, cached, true), Texts{"Trying \"" + path("folder/file") + "\""});
    auto root = newFile(5, path("absent"));
    EXPECT_EQ(textsOfChange(*root, cached, true), Texts{});
}

TEST_F(ChangesTest, ANameWithASlashStandsOnDiskWithAColon) {
    _temp.write("folder/a:b", "");
    modify("folder/a:b", kThen);
    TuvNode* node = addFile(_folder.get(), newFile(79, "a/b"));
    EXPECT_EQ(textsOfChange(*node, dates(1e12, kThen), false), Texts{"Trying \"" + path("folder/a:b") + "\""});
    EXPECT_EQ(textsOfChange(*node, dates(1e12, kThen - 1), true),
              (Texts{"Trying \"" + path("folder/a:b") + "\"",
                     "YEP, the modification date has changed !!! \"" + path("folder/a:b") + "\""}));
    EXPECT_EQ(node->fileName(), "a/b");
}

TEST_F(ChangesTest, AFolderThatChangedListsItselfAgain) {
    _folder->setIsResolved(true);
    ASSERT_EQ(_folder->logicalSize(), 4u);
    _temp.write("folder/new", "seven..");
    _temp.makeFolder("folder/newFolder");
    modify("folder", kThen);
    const std::string own = path("folder");
    EXPECT_EQ(textsOfChange(*_folder, dates(1e12, kThen - 1), true),
              (Texts{"YEP, the modification date has changed !!! \"" + own + "\"", "YEP !!! " + own, "[" + own + "]",
                     "[" + own + "]", "Added [" + own + "/new]", "Merged [" + own + "]"}));
    EXPECT_EQ(_folder->fileCount(), 2);
    EXPECT_EQ(_folder->logicalSize(), 11u);
    // Subfolders stay as they were.
    EXPECT_EQ(_folder->folderCount(), 1);
    EXPECT_EQ(_folder->folders()->objectAtIndex(0), _sub);
}

// Asked through the base class: the folder's own answer, and the number makes no difference.
TEST_F(ChangesTest, AnUnchangedFolderIsNotListed) {
    _temp.write("folder/new", "");
    TuvNode& node = *_folder;
    for (const int ignored : {0, 1, -1}) EXPECT_FALSE(node.hasFileSytemChanged(dates(1e12, 1e12), ignored));
    EXPECT_EQ(_folder->fileCount(), 1);
}

TEST_F(ChangesTest, DebugLinesTellTheAttributes) {
    const PropertyList cached = attributes(*_folder);
    const std::string own = path("folder");
    EXPECT_EQ(
        textsOfChange(*_folder, cached, false, LogLevel::debug),
        (Texts{own, own, "nodeFileAttributes " + cached.description(), "cacheFileAttributes " + cached.description()}));
}

}  // namespace
}  // namespace kavaro
