#include <errno.h>

#include "scan/ScanTest.h"

namespace kavaro {
namespace {

class UnreadableFolderTest : public ScanTest {
  protected:
    // Lists the folder and gives the log's lines.
    Texts linesOfListing() {
        ModelLogs logs;
        EXPECT_TRUE(_folder->loadNodes());
        return textsOf(logs, LogLevel::error);
    }

    FakeCatalog::Folder& _place = disk->addFolder("/locked", 1);
    TuvRef<TuvDirNode> _folder = folderNode("/locked");
};

// The disk in memory opens /dev/null for each of its folders: that is where the reference leads.
TEST_F(UnreadableFolderTest, TheSecondLineSaysWhereTheReferenceLeads) {
    _place.iteratorError = EIO;
    EXPECT_EQ(linesOfListing(), (Texts{"Couldn't create FSIterator for '/locked': Error 5",
                                       "Couldn't create FSIterator for '/dev/null': Error 5"}));
    EXPECT_TRUE(_folder->hasLoadNodes());
    EXPECT_EQ(_folder->childrenCount(), 0);
}

TEST_F(UnreadableFolderTest, AReferenceThatLeadsNowhereIsNamedByTheNodesPath) {
    _place.openError = EACCES;
    EXPECT_EQ(linesOfListing(), (Texts{"Couldn't create FSIterator for '/locked': Error 13",
                                       "Couldn't create FSIterator for '/locked': Error 13"}));
    EXPECT_TRUE(_folder->hasLoadNodes());
    EXPECT_EQ(_folder->childrenCount(), 0);
}

}  // namespace
}  // namespace kavaro
