#include <thread>

#include "scan/ScanTest.h"

namespace kavaro {
namespace {

// Counts the catalogs that are made, each of which is a disk of its own.
class ScanSessionTest : public ScanTest {
  protected:
    ScanSessionTest() {
        ScanSession::setCatalogFactory([this](const std::string& root) {
            _roots.push_back(root);
            return std::make_shared<FakeCatalog>();
        });
    }
    Texts _roots;
};

TEST_F(ScanSessionTest, WithoutAJobThereIsOneForTheProcess) {
    const auto session = ScanSession::current();
    EXPECT_EQ(ScanSession::current(), session);
    std::shared_ptr<ScanSession> ofOtherThread;
    std::thread([&] { ofOtherThread = ScanSession::current(); }).join();
    EXPECT_EQ(ofOtherThread, session);
    EXPECT_EQ(_roots, Texts{""});
}

TEST_F(ScanSessionTest, AJobBeginsItsOwn) {
    const auto first = ScanSession::begin("/a");
    EXPECT_EQ(ScanSession::current(), first);
    const auto second = ScanSession::begin("/b");
    EXPECT_EQ(ScanSession::current(), second);
    EXPECT_NE(&first->catalog(), &second->catalog());
    EXPECT_EQ(_roots, (Texts{"/a", "/b"}));
}

TEST_F(ScanSessionTest, ALoadBesideTheJobSharesItsCatalogAndKeepsWhatItMisses) {
    const auto alone = ScanSession::forOneShot("/x");
    EXPECT_EQ(_roots, Texts{"/x"});
    const auto job = ScanSession::begin("/a");
    const auto oneShot = ScanSession::forOneShot("/x");
    EXPECT_EQ(&oneShot->catalog(), &job->catalog());
    EXPECT_NE(&alone->catalog(), &job->catalog());
    oneShot->addMissed("/x", kReasonPermission);
    EXPECT_TRUE(job->takeMissed().empty());
    EXPECT_EQ(oneShot->takeMissed().size(), 1u);
    EXPECT_TRUE(oneShot->takeMissed().empty());
}

TEST_F(ScanSessionTest, AScopeHoldsForItsThreadAndMayNest) {
    const auto job = ScanSession::begin("/a");
    const auto outer = ScanSession::forOneShot("/x");
    const auto inner = ScanSession::forOneShot("/y");
    {
        ScanSession::Scope outerScope(outer);
        {
            ScanSession::Scope innerScope(inner);
            EXPECT_EQ(ScanSession::current(), inner);
            std::thread([&] { EXPECT_EQ(ScanSession::current(), job); }).join();
        }
        EXPECT_EQ(ScanSession::current(), outer);
    }
    EXPECT_EQ(ScanSession::current(), job);
}

TEST_F(ScanSessionTest, MissedFoldersComeInTheOrderOfListing) {
    ScanSession::begin("/a");
    for (const char* path : {"/a/2", "/a/1"}) ScanSession::current()->addMissed(path, kReasonVanished);
    EXPECT_EQ(missed(), (Texts{"/a/2: vanished", "/a/1: vanished"}));
}

TEST_F(ScanSessionTest, TheRealDiskFollowsTheSettings) {
    ScanSession::setCatalogFactory({});
    const auto entersProc = [] {
        auto proc = newFolder(1, "/proc/sys");
        ScanSession::begin("/");
        EXPECT_TRUE(proc->loadNodes());
        return proc->childrenCount() > 0;
    };
    EXPECT_FALSE(entersProc());
    UserDefaults::standard().setArguments({"-loadPseudoFileSystems", "1"});
    EXPECT_TRUE(entersProc());
    UserDefaults::standard().setArguments({"-loadPseudoFileSystems", "1", "-sameFileSystemOnly", "1"});
    EXPECT_FALSE(entersProc());
    EXPECT_EQ(missed(), Texts{"/proc/sys: other file system"});
}

}  // namespace
}  // namespace kavaro
