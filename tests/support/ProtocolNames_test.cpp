#include "support/ProtocolNames.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "platform/Catalog.h"

namespace kavaro {
namespace {

// Whoever writes a client reads docs/protocol.md: what the program is compiled with must stand there.
TEST(ProtocolNames, StandInTheDescriptionOfTheProtocol) {
    std::ifstream stream(KAVARO_SOURCE_DIR "/docs/protocol.md");
    const std::string page{std::istreambuf_iterator<char>(stream), {}};
    for (std::string_view name : {bus::kServerName,
                                  bus::kServerPath,
                                  bus::kServerInterface,
                                  bus::kClientName,
                                  bus::kClientPath,
                                  bus::kClientInterface,
                                  bus::kNotificationPath,
                                  bus::kNotificationInterface,
                                  TuvNodeFactoryStartedNotification,
                                  TuvNodeFactoryResolvedNotification,
                                  TuvNodeFactoryCompletedNotification,
                                  TuvNodeFactoryStoppedNotification,
                                  TuvNodeFactoryTrashFileNotification,
                                  TuvNodeFolderUpdatedNotification,
                                  TuvNodeFileUpdatedNotification,
                                  KavaroUnreadFoldersNotification,
                                  kNotificationObject,
                                  kSerializedKey,
                                  kParentInodesKey,
                                  kFoldersKey,
                                  kReasonsKey,
                                  kErrorsKey,
                                  kReasonKey,
                                  kPathNameKey,
                                  kAttributesKey,
                                  kDetailKey,
                                  std::string_view(kReasonPermission),
                                  std::string_view(kReasonVanished),
                                  std::string_view(kReasonReadError),
                                  std::string_view(kReasonPseudoFileSystem),
                                  std::string_view(kReasonOtherFileSystem),
                                  std::string_view(kReasonBackupFolder)}) {
        EXPECT_NE(page.find("`" + std::string(name) + "`"), std::string::npos) << name;
    }
}

}  // namespace
}  // namespace kavaro
