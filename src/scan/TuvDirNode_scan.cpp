#include <cerrno>
#include <cmath>

#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "platform/Environment.h"
#include "platform/Text.h"
#include "scan/BackupFolders.h"
#include "scan/ScanSession.h"
#include "support/Stopwatch.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

constexpr int kManyFiles = 16000;
constexpr int kManyFolders = 1600;
constexpr std::size_t kLongestReferencePath = 1023;

const char* reasonOf(int error) {
    if (error == EACCES || error == EPERM) return kReasonPermission;
    if (error == ENOENT || error == ENOTDIR || error == ELOOP || error == ESTALE) return kReasonVanished;
    return kReasonReadError;
}

// One listing of one folder: what the steps share.
class Listing {
  public:
    Listing(TuvDirNode* folder, TuvObjectArray* files, TuvObjectArray* folders)
        : _folder(folder), _files(files), _folders(folders), _session(ScanSession::current()) {}

    // False when the folder is none: then nothing may be touched.
    bool run();
    void forgetLongPaths();

  private:
    bool findReference(FileReference* reference);
    void readEntries(CatalogIterator& iterator);
    void addEntry(const CatalogEntry& entry);
    TuvNode* addFolder(const CatalogEntry& entry);
    TuvNode* addFile(const CatalogEntry& entry);
    void reportTime(double spent) const;

    TuvDirNode* const _folder;
    TuvObjectArray* const _files;
    TuvObjectArray* const _folders;
    const std::shared_ptr<ScanSession> _session;
    const bool _allowBackups = backupFoldersAllowed();
    int _fileCount = 0;
    int _folderCount = 0;
};

bool Listing::findReference(FileReference* reference) {
    int error = 0;
    if (_session->catalog().reference(std::string(_folder->filePath()), reference, &error)) return true;
    const std::size_t length = _folder->filePath().size();
    if (length > kLongestReferencePath) {
        TuvLog::error(tuvDirNodeLog, "loadNodes", "Path too long (%d bytes) !!!", length);
        _session->addMissed(std::string(_folder->filePath()), reasonOf(error));
        return false;
    }
    // A name with "/" in it stands on disk with ":" instead.
    _folder->setFileName(_folder->convertedFileName());
    const std::string path(_folder->filePath());
    TuvLog::info(tuvDirNodeLog, "loadNodes", "Trying \"%@\"", path);
    if (_session->catalog().reference(path, reference, &error)) return true;
    TuvLog::error(tuvDirNodeLog, "loadNodes", "Can't get the FSRef on \"%@\". This is bad !!!", path);
    _session->addMissed(path, reasonOf(error));
    return false;
}

bool Listing::run() {
    if (tuvDirNodeLog.debugOn()) TuvLog::debug(tuvDirNodeLog, "loadNodes", "%@", _folder->filePath());
    FileReference reference;
    if (!findReference(&reference)) return true;
    if (!reference.isDirectory) return false;
    if (reference.excludedReason) {
        TuvLog::info(tuvDirNodeLog, "loadNodes", "Not scanned (%s): \"%@\"", reference.excludedReason,
                     _folder->filePath());
        _session->addMissed(std::string(_folder->filePath()), reference.excludedReason);
        return true;
    }
    int error = reference.openError;
    std::unique_ptr<CatalogIterator> iterator;
    // A catalog that fails leaves the reference here, so this is no plain move.
    if (error == 0) iterator = _session->catalog().openIterator(static_cast<FileReference&&>(reference), &error);
    if (!iterator) {
        // Twice: by the node's path and by where the reference leads, which differ behind a link.
        const std::string path(_folder->filePath());
        const std::string place = pathFromFSRef(reference);
        TuvLog::error(tuvDirNodeLog, "loadNodes", "Couldn't create FSIterator for '%@': Error %i", path, error);
        TuvLog::error(tuvDirNodeLog, "loadNodes", "Couldn't create FSIterator for '%@': Error %i",
                      place.empty() ? path : place, error);
        _session->addMissed(path, reasonOf(error));
        return true;
    }
    const Stopwatch watch;
    readEntries(*iterator);
    reportTime(watch.milliseconds());
    return true;
}

void Listing::readEntries(CatalogIterator& iterator) {
    CatalogEntry entries[CatalogIterator::kEntriesPerCall];
    CatalogStatus status = CatalogStatus::ok;
    while (status == CatalogStatus::ok) {
        int count = 0;
        status = iterator.nextEntries(entries, &count);
        // What came with an error is dropped; what came with the end is not.
        if (status == CatalogStatus::error) break;
        for (int i = 0; i < count; ++i) addEntry(entries[i]);
    }
    // The tree keeps what was read; the client learns that something is missing.
    if (status == CatalogStatus::error || iterator.unreadableEntries() > 0)
        _session->addMissed(std::string(_folder->filePath()), reasonOf(iterator.error()));
}

void Listing::addEntry(const CatalogEntry& entry) {
    TuvNode* node = entry.isDirectory ? addFolder(entry) : addFile(entry);
    node->setContentModDate(TuvNode::timeIntervalFromUTCDateTime(entry.contentModDate));
    node->setInode(entry.nodeID);
    node->setParent(_folder);
    node->setFileName(entry.name);
    if (entry.isExcluded) {
        TuvLog::info(tuvDirNodeLog, "loadNodes", "Not scanned (%s): \"%@\"", entry.reason, node->filePath());
        _session->addMissed(std::string(node->filePath()), entry.reason);
    }
    if (tuvDirNodeLog.traceOn())
        TuvLog::trace(tuvDirNodeLog, "loadNodes", "[%@] %@", node->nodeTypeString(), node->filePath());
}

TuvNode* Listing::addFolder(const CatalogEntry& entry) {
    auto* node = new TuvDirNode;
    _folders->adoptObject(node);
    ++_folderCount;
    if (entry.isExcluded) {
        node->setHasLoadNodes();
    } else if (!_allowBackups && isBackupFolderName(entry.name)) {
        TuvLog::error(tuvDirNodeLog, "loadNodes", "We can't scan TimeMachine backup folders: \"%@/[%@]\"",
                      _folder->filePath(), entry.name);
        node->setHasLoadNodes();
        _session->addMissed(stringByAppendingPathComponent(_folder->filePath(), entry.name), kReasonBackupFolder);
    }
    return node;
}

TuvNode* Listing::addFile(const CatalogEntry& entry) {
    auto* node = new TuvNode;
    _files->adoptObject(node);
    ++_fileCount;
    node->setLogicalSize(entry.logicalSize);
    node->setPhysicalSize(entry.physicalSize);
    return node;
}

void Listing::reportTime(double spent) const {
    if (_fileCount > kManyFiles || _folderCount > kManyFolders) {
        TuvLog::info(tuvDirNodeLog, "loadNodes", "%d files, %d folders in %7.3f ms at %d \"%@\"", _fileCount,
                     _folderCount, spent, _folder->inode(), _folder->filePath());
        TuvLog::info(tuvDirNodeLog, "loadNodes", "");
    }
    if (tuvDirNodeLog.debugOn())
        TuvLog::debug(tuvDirNodeLog, "loadNodes", "spent %7.3f ms, [%d/%d files, %d/%d foldes] \"%@\"", spent,
                      _files->count(), _files->size(), _folders->count(), _folders->size(), _folder->filePath());
}

// A long path is kept until the first subfolder has made its own of it: a deep tree would hold one for each level. A
// root's path is its name.
void Listing::forgetLongPaths() {
    const auto forget = [](TuvDirNode* folder) {
        if (folder && folder->parent() && folder->hasCachedFilePath() &&
            folder->filePath().size() > TuvNode::kCachedAncestorPathLimit)
            folder->setFilePath({});
    };
    forget(_folder->parent());
    if (_folders->count() == 0) forget(_folder);
}

}  // namespace

TuvRef<TuvNode> TuvDirNode::loadFromPath(const std::string& path) {
    CatalogStat stat;
    int error = 0;
    const bool found = ScanSession::current()->catalog().stat(path, &stat, &error);
    if (tuvDirNodeLog.debugOn()) TuvLog::debug(tuvDirNodeLog, "loadFromPath", "%@", path);
    if (!found) {
        TuvLog::error(tuvDirNodeLog, "loadFromPath", "Could not stat(%@), it is possible the path has been removed.",
                      path);
        return nullptr;
    }
    TuvRef<TuvNode> node;
    if (stat.isDirectory) {
        node = make<TuvDirNode>();
    } else {
        node = make<TuvNode>();
        node->setLogicalSize(stat.size);
        const double block = stat.blockSize > 0 ? static_cast<double>(stat.blockSize) : 1;
        node->setPhysicalSize(static_cast<std::uint64_t>(std::ceil(static_cast<double>(stat.size) / block) * block));
    }
    node->setInode(stat.nodeID);
    node->setContentModDate(static_cast<double>(stat.modificationSeconds) - dateForJan1904());
    node->setFileName(path);
    return node;
}

bool TuvDirNode::loadNodes(TuvObjectArray* files, TuvObjectArray* folders) {
    Listing listing(this, files, folders);
    if (listing.run()) setHasLoadNodes();
    listing.forgetLongPaths();
    return true;
}

bool TuvDirNode::loadNodes() {
    if (hasLoadNodes()) return false;
    const Stopwatch watch;
    const bool loaded = loadNodes(files(), folders());
    appendStatInfo(watch.milliseconds());
    return loaded;
}

void TuvDirNode::loadNodes_debugLowLevel() const {
    constexpr std::uint32_t kTrap = 1465874;
    if (inode() == kTrap) TuvLog::info(tuvDirNodeLog, "loadNodes_debugLowLevel", "%@", filePath());
    auto session = ScanSession::current();
    FileReference reference;
    int error = 0;
    if (!session->catalog().reference(std::string(filePath()), &reference, &error) || !reference.isDirectory) return;
    auto iterator = session->catalog().openIterator(std::move(reference), &error);
    if (!iterator) return;
    const Stopwatch watch;
    int files = 0;
    int folders = 0;
    CatalogEntry entries[CatalogIterator::kEntriesPerCall];
    for (CatalogStatus status = CatalogStatus::ok; status == CatalogStatus::ok;) {
        int count = 0;
        status = iterator->nextEntries(entries, &count);
        if (status == CatalogStatus::error) {
            TuvLog::info(tuvDirNodeLog, "loadNodes_debugLowLevel", "Error %s", errorText(iterator->error()));
            break;
        }
        for (int i = 0; i < count; ++i) ++(entries[i].isDirectory ? folders : files);
    }
    if (files > kManyFiles || folders > kManyFolders) {
        TuvLog::info(tuvDirNodeLog, "loadNodes_debugLowLevel", "%d files, %d folders in %7.3f ms at %d \"%@\"", files,
                     folders, watch.milliseconds(), inode(), filePath());
        TuvLog::info(tuvDirNodeLog, "loadNodes_debugLowLevel", "");
    }
}

}  // namespace kavaro
