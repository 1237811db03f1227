#pragma once

#include <string_view>

namespace kavaro {

// Names that server and client meet under. Public: other clients rely on them, do not change.
namespace bus {

inline constexpr std::string_view kServerName = "org.kavaro.Kavaro.server";
inline constexpr std::string_view kServerPath = "/org/kavaro/Kavaro/server";
inline constexpr std::string_view kServerInterface = "org.kavaro.Kavaro.NodeFactoryServer";
inline constexpr std::string_view kClientName = "org.kavaro.Kavaro.client";
inline constexpr std::string_view kClientPath = "/org/kavaro/Kavaro/client";
inline constexpr std::string_view kClientInterface = "org.kavaro.Kavaro.Client";
inline constexpr std::string_view kNotificationPath = "/org/kavaro/Kavaro/NodeFactory";
inline constexpr std::string_view kNotificationInterface = "org.kavaro.Kavaro.NodeFactory";

}  // namespace bus

// Notifications; over the bus the name is the signal's member.
inline constexpr std::string_view TuvNodeFactoryStartedNotification = "TuvNodeFactoryStartedNotification";
inline constexpr std::string_view TuvNodeFactoryResolvedNotification = "TuvNodeFactoryResolvedNotification";
inline constexpr std::string_view TuvNodeFactoryCompletedNotification = "TuvNodeFactoryCompletedNotification";
inline constexpr std::string_view TuvNodeFactoryStoppedNotification = "TuvNodeFactoryStoppedNotification";
inline constexpr std::string_view TuvNodeFactoryTrashFileNotification = "TuvNodeFactoryTrashFileNotification";
// Exported for clients; no operation of the server posts these two.
inline constexpr std::string_view TuvNodeFolderUpdatedNotification = "TuvNodeFolderUpdatedNotification";
inline constexpr std::string_view TuvNodeFileUpdatedNotification = "TuvNodeFileUpdatedNotification";
// Folders whose contents the totals miss, posted ahead of the batch that holds them; at most 1,000 a time.
inline constexpr std::string_view KavaroUnreadFoldersNotification = "KavaroUnreadFoldersNotification";

// The object of every notification that goes to another process.
inline constexpr std::string_view kNotificationObject = "TuvNodeFactory";

// Keys of userInfo.
inline constexpr std::string_view kSerializedKey = "serialized";
inline constexpr std::string_view kParentInodesKey = "parentInodes";
inline constexpr std::string_view kFoldersKey = "folders";
inline constexpr std::string_view kReasonsKey = "reasons";
inline constexpr std::string_view kErrorsKey = "errors";
// Of each error; "detail" is an addition of ours.
inline constexpr std::string_view kReasonKey = "reason";
inline constexpr std::string_view kPathNameKey = "pathName";
inline constexpr std::string_view kAttributesKey = "attributes";
inline constexpr std::string_view kDetailKey = "detail";

}  // namespace kavaro
