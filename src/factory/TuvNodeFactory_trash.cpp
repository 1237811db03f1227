#include "factory/FactoryLog.h"
#include "factory/TuvNodeFactory.h"
#include "platform/Environment.h"
#include "platform/FileAttributes.h"
#include "platform/Localization.h"
#include "platform/Text.h"
#include "support/DictionaryHelpers.h"
#include "support/ProtocolNames.h"

namespace kavaro {

namespace {

constexpr double kLocalDelay = 0.01;  // seconds
constexpr std::string_view kUsersFolders[] = {"/Users", "/home"};

std::string withText(std::string format, std::string_view text) {
    const std::size_t place = format.find("%@");
    return place == std::string::npos ? format : format.replace(place, 2, text);
}

std::string reasonFor(const PropertyList& attributes) {
    // Attributes that cannot be read do not say that it is somebody else's.
    if (attributes.isNull() || isSameFileOwner(attributes))
        return localized("kTuvNodeFactory02", "Could not move this file to Trash.");
    const PropertyList* name = attributes.get(kFileOwnerAccountName);
    const std::string owner = name && name->string() && !name->string()->empty() ? *name->string() : "Unknown";
    return withText(localized("kTuvNodeFactory01", "Could not move this file to Trash. The file is owned by user %@."),
                    owner);
}

// Empty where nothing is there.
std::string whyNotLoaded(const std::string& path) {
    const PropertyList attributes = allFileAttributesAtPath(path, false);
    const PropertyList* type = attributes.get(kFileType);
    return type && *type == PropertyList(kFileTypeSymbolicLink) ? "it is a link that leads nowhere" : "";
}

bool isBelow(std::string_view path, std::string_view folder) {
    while (folder.ends_with('/')) folder.remove_suffix(1);
    return !folder.empty() && path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

bool isInUsersFolder(std::string_view path, std::string_view home) {
    for (const std::string_view folder : kUsersFolders)
        if (isBelow(path, folder)) return true;
    return isBelow(path, home);
}

// Bytes of a message that an error takes, roughly.
std::size_t weightOf(const TrashError& error) {
    constexpr std::size_t kAttributes = 600;
    return error.reason.size() + error.pathName.size() + error.detail.size() +
           (error.attributes.isNull() ? 100 : kAttributes);
}

// A message has its limit, and a call may name a hundred thousand paths: what goes beyond this comes in further
// notifications.
constexpr std::size_t kErrorBytesPerNotification = 8u << 20;

std::vector<std::vector<TrashError>> inPortions(const std::vector<TrashError>& errors) {
    std::vector<std::vector<TrashError>> portions(1);
    std::size_t bytes = 0;
    for (const TrashError& error : errors) {
        const std::size_t weight = weightOf(error);
        if (bytes > 0 && bytes + weight > kErrorBytesPerNotification) {
            portions.emplace_back();
            bytes = 0;
        }
        portions.back().push_back(error);
        bytes += weight;
    }
    return portions;
}

}  // namespace

void TuvNodeFactory::moveToTrash(const std::vector<std::string>& paths) {
    TuvLog::info(factoryLog, "moveToTrash:", "%d files, %@", paths.size(), workerText());
    if (!_localWorker) return _moveToTrash(paths);
    RunLoop::main().cancel(_trashTimer);
    _trashTimer = RunLoop::main().schedule(kLocalDelay, [this, paths] {
        _trashTimer = 0;
        _moveToTrash(paths);
    });
}

void TuvNodeFactory::_moveToTrash(const std::vector<std::string>& paths) {
    const auto nodes = make<TuvObjectArray>(static_cast<int>(paths.size()));
    NotificationUserInfo userInfo;
    userInfo.errors.emplace();
    TuvLog::info(factoryLog, "_moveToTrash:", "%d nodes", paths.size());
    for (const std::string& path : paths) {
        if (path.find(".Trash") != std::string::npos) {
            TuvLog::info(factoryLog, "_moveToTrash:", "Already in Trash [%@]", path);
        } else if (const TuvRef<TuvNode> node = _moveToTrash(path, userInfo)) {
            nodes->addObject(node.get());
        }
    }
    if (nodes->count() > 0) _workspace.noteFileSystemChanged();
    _moveToTrashNotification(nodes->serialize(), userInfo);
}

TuvRef<TuvNode> TuvNodeFactory::_moveToTrash(const std::string& path, NotificationUserInfo& userInfo) {
    const ScanSession::Scope scope(ScanSession::forOneShot(path));
    TuvRef<TuvNode> node = TuvDirNode::loadFromPath(path);
    TuvLog::info(factoryLog, "_moveToTrash:userInfo:", "%@", path);
    if (!node) {
        userInfo.errors->push_back({"Could not load node form path", path, {}, whyNotLoaded(path)});
        return nullptr;
    }
    int tag = -1;
    std::string detail;
    const bool worked =
        _workspace.recycle(stringByDeletingLastPathComponent(path), lastPathComponent(path), &tag, &detail);
    TuvLog::info(factoryLog, "_moveToTrash:userInfo:", "%@, recycle tag is %d",
                 worked ? "It worked" : "It did not work", tag);
    if (worked && tag >= 0) return node;
    PropertyList attributes = allFileAttributesAtPath(path, false);
    const std::string reason = reasonFor(attributes);
    TuvLog::error(factoryLog, "_moveToTrash:userInfo:", "%@", reason);
    if (!detail.empty()) TuvLog::error(factoryLog, "_moveToTrash:userInfo:", "%@: %@", path, detail);
    userInfo.errors->push_back({reason, path, std::move(attributes), std::move(detail)});
    return node;  // the client tells failures apart by the errors
}

void TuvNodeFactory::_moveToTrashNotification(ByteBuffer data, const NotificationUserInfo& userInfo) {
    if (_debugOn) TuvLog::debug(factoryLog, "_moveToTrashNotification:userInfo:", "%d bytes", data.size());
    const auto shared = std::make_shared<const ByteBuffer>(std::move(data));
    if (_localWorker) {
        const std::any object = shared->isNull() ? std::any() : std::any(shared);
        return post(TuvNodeFactoryTrashFileNotification, object, userInfo);
    }
    NotificationUserInfo remote;
    remote.serialized = shared;
    for (std::vector<TrashError>& portion : inPortions(*userInfo.errors)) {
        remote.errors = std::move(portion);
        post(TuvNodeFactoryTrashFileNotification, std::any(), remote);
        remote.serialized = nullptr;
    }
}

bool TuvNodeFactory::isSafeToTashPathsAsSudo(const std::vector<std::string>& paths) {
    if (TuvNode::removeAsSudo()) return true;
    const std::string home = homeFolder();
    bool isSafe = true;
    for (const std::string& path : paths) {
        if (isInUsersFolder(path, home)) continue;
        TuvLog::info(factoryLog, "isSafeToTashPathsAsSudo:", "%@", path);
        isSafe = false;
        break;
    }
    TuvLog::info(factoryLog, "isSafeToTashPathsAsSudo:", "%d folders %@", paths.size(), isSafe ? "YES" : "NO");
    return isSafe;
}

}  // namespace kavaro
