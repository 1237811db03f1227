#include <unistd.h>

#include <algorithm>

#include "cleanup/Bundles.h"

namespace kavaro {
namespace {

using Texts = std::vector<std::string>;

class NibsTest : public testing::Test {
  protected:
    Texts nibs() {
        const TuvRef<TuvDirNode> root = bundles.tree();
        return bundles.relative(*root->nibFiles());
    }
    // A bundle with one nib bundle in it.
    void app(const std::string& name) { bundles.nib(name + "/Contents/Resources/Main.nib"); }
    static Texts allOf(const std::string& name) {
        const std::string nib = name + "/Contents/Resources/Main.nib/";
        return {nib + "classes.nib", nib + "designable.nib", nib + "info.nib"};
    }
    static PropertyList sealOf(const Texts& names) {
        Texts keys;
        for (const std::string& name : names) keys.push_back("Resources/Main.nib/" + name);
        return Bundles::seal(keys);
    }

    Bundles bundles;
};

TEST_F(NibsTest, ThreeFilesOfANibBundleCanGo) {
    app("A.app");
    EXPECT_EQ(nibs(), allOf("A.app"));
}

TEST_F(NibsTest, NamesAreExact) {
    bundles.file("A.app/Main.nib/Info.nib");
    bundles.file("A.app/Main.nib/CLASSES.nib");
    bundles.file("A.app/Main.nib/info.nib.bak");
    bundles.file("A.app/Main.nib/keyedobjects.nib");
    bundles.file("A.app/Other.nib");
    bundles.folder("A.app/classes.nib");  // no file
    EXPECT_EQ(nibs(), Texts{});
}

TEST_F(NibsTest, TheyComeInTheOrderOfTheirPaths) {
    app("b.app");
    app("A.app");
    app("C.app");
    Texts expected;
    for (const char* name : {"A.app", "b.app", "C.app"})
        for (const std::string& path : allOf(name)) expected.push_back(path);
    EXPECT_EQ(nibs(), expected);
}

TEST_F(NibsTest, WhatASignatureSealsStays) {
    app("Signed.app");
    app("Plain.app");
    bundles.file("Signed.app/Contents/CodeResources", sealOf({"info.nib", "classes.nib", "keyedobjects.nib"}).toXML());
    Texts expected = allOf("Plain.app");
    expected.push_back("Signed.app/Contents/Resources/Main.nib/designable.nib");
    EXPECT_EQ(nibs(), expected);
}

TEST_F(NibsTest, ABinarySignatureSealsAsWell) {
    app("Signed.app");
    bundles.file("Signed.app/Contents/CodeResources", sealOf({"info.nib", "designable.nib"}).toBinary());
    EXPECT_EQ(nibs(), Texts{"Signed.app/Contents/Resources/Main.nib/classes.nib"});
}

// The seal speaks of paths below the folder that the signature lies in; there it is a link in newer bundles.
TEST_F(NibsTest, TheFileInTheSignatureFolderIsReadThroughTheLinkAlone) {
    app("Linked.app");
    const std::string seal = sealOf({"info.nib"}).toXML();
    bundles.file("Linked.app/Contents/_CodeSignature/CodeResources", seal);
    EXPECT_EQ(nibs(), allOf("Linked.app"));
    const std::string link = bundles.path("Linked.app/Contents/CodeResources");
    ASSERT_EQ(symlink("_CodeSignature/CodeResources", link.c_str()), 0);
    Texts expected = allOf("Linked.app");
    expected.pop_back();
    EXPECT_EQ(nibs(), expected);
}

TEST_F(NibsTest, KeysThatNameNothingSealNothing) {
    app("A.app");
    bundles.file("A.app/Contents/CodeResources",
                 Bundles::seal({"Resources/Main.nib/Info.nib", "Resources/Main.nib/info.nib.bak", "info.nib", "", "/",
                                "../Contents/Resources/Main.nib/info.nib", "Resources/Main.nib"})
                     .toXML());
    EXPECT_EQ(nibs(), allOf("A.app"));
}

TEST_F(NibsTest, SignaturesThatMakeNoSenseSealNothing) {
    app("A.app");
    const std::string good = sealOf({"info.nib"}).toXML();
    PropertyList noFiles = PropertyList::Dictionary();
    noFiles.set("rules", 1);
    PropertyList wrongFiles = PropertyList::Dictionary();
    wrongFiles.set("files", PropertyList::Array{"Resources/Main.nib/info.nib"});
    std::string nested = "<plist>";
    for (int i = 0; i < 100000; ++i) nested += "<array>";
    for (int i = 0; i < 100000; ++i) nested += "</array>";
    nested += "</plist>";
    const Texts contents{"",
                         "no property list",
                         PropertyList(PropertyList::Array{"files"}).toXML(),
                         PropertyList("files").toXML(),
                         noFiles.toXML(),
                         wrongFiles.toXML(),
                         wrongFiles.toBinary(),
                         nested,
                         good.substr(0, good.size() / 2)};
    for (const std::string& content : contents) {
        bundles.file("A.app/Contents/CodeResources", content);
        EXPECT_EQ(nibs(), allOf("A.app")) << content.substr(0, 200);
    }
    bundles.file("A.app/Contents/CodeResources", good);
    EXPECT_EQ(nibs().size(), 2u);
}

// Whatever is left of the file: it seals what it sealed, or nothing.
TEST_F(NibsTest, SignaturesCutShort) {
    app("A.app");
    ModelLogs logs(LogLevel::off);
    const PropertyList seal = sealOf({"info.nib"});
    bundles.file("A.app/Contents/CodeResources");
    const TuvRef<TuvDirNode> root = bundles.tree();
    for (const std::string& whole : {seal.toXML(), seal.toBinary()}) {
        for (std::size_t length = 0; length < whole.size(); ++length) {
            bundles.file("A.app/Contents/CodeResources", whole.substr(0, length));
            const int count = root->nibFiles()->count();
            EXPECT_TRUE(count == 2 || count == 3) << length;
        }
    }
}

TEST_F(NibsTest, SignaturesThatCannotBeRead) {
    app("A.app");
    const std::string path = bundles.path("A.app/Contents/CodeResources");
    bundles.folder("A.app/Contents/CodeResources");
    EXPECT_EQ(nibs(), allOf("A.app"));
    ASSERT_EQ(rmdir(path.c_str()), 0);
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    EXPECT_EQ(nibs(), allOf("A.app"));
    ASSERT_EQ(unlink(path.c_str()), 0);
    ASSERT_EQ(symlink("absent", path.c_str()), 0);
    EXPECT_EQ(nibs(), allOf("A.app"));
    // It went after it was listed.
    ASSERT_EQ(unlink(path.c_str()), 0);
    bundles.file("A.app/Contents/CodeResources", sealOf({"info.nib"}).toXML());
    const TuvRef<TuvDirNode> root = bundles.tree();
    ASSERT_EQ(unlink(path.c_str()), 0);
    EXPECT_EQ(bundles.relative(*root->nibFiles()), allOf("A.app"));
}

TEST_F(NibsTest, NamesThatAreNotUTF8) {
    app("A\xff.app");
    app("B\xfe.app");
    bundles.file("A\xff.app/Contents/CodeResources", sealOf({"info.nib"}).toXML());
    Texts expected = allOf("A\xff.app");
    expected.pop_back();
    for (const std::string& path : allOf("B\xfe.app")) expected.push_back(path);
    Texts found = nibs();
    std::sort(found.begin(), found.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(found, expected);
}

// Signatures with many keys: each candidate is looked up in all of them.
TEST_F(NibsTest, ThousandsOfSealedFiles) {
    Texts sealed;
    for (int i = 0; i < 300; ++i) {
        const std::string nib = "Resources/N" + std::to_string(i) + ".nib";
        bundles.file("A.app/Contents/" + nib + "/info.nib", "");
        if (i % 3 != 0) sealed.push_back(nib + "/info.nib");
    }
    for (int i = 0; i < 20000; ++i) sealed.push_back("Resources/other" + std::to_string(i) + "/classes.nib");
    bundles.file("A.app/Contents/CodeResources", Bundles::seal(sealed).toXML());
    EXPECT_EQ(nibs().size(), 100u);
}

TEST_F(NibsTest, TheLogTellsTheNumbers) {
    app("A.app");
    bundles.file("A.app/Contents/CodeResources", sealOf({"info.nib"}).toXML());
    const TuvRef<TuvDirNode> root = bundles.tree();
    ModelLogs logs(LogLevel::debug);
    root->nibFiles();
    Texts own;
    for (const LogCapture::Line& line : logs->lines())
        if (line.selector == "nibFiles" || line.selector == "removeObjectAtIndex") own.push_back(line.text);
    ASSERT_EQ(own.size(), 6u);
    const std::string path = bundles.path("A.app/Contents/Resources/Main.nib/info.nib");
    EXPECT_EQ(own[0], bundles.path());
    EXPECT_EQ(own[1], "3 files, all files");
    EXPECT_EQ(own[2], PropertyList(PropertyList::Array{"Resources/Main.nib/info.nib"}).description());
    EXPECT_EQ(own[3], PropertyList(PropertyList::Array{path}).description());
    EXPECT_EQ(own[4], path + ", index 2");
    EXPECT_TRUE(own[5].starts_with("2 files, filtered files, in ")) << own[5];
}

}  // namespace
}  // namespace kavaro
