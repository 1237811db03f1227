#include "client/DuplicateSearch.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "client/ContentSample.h"
#include "platform/Environment.h"
#include "platform/FileStatus.h"
#include "platform/Text.h"
#include "platform/Thread.h"

namespace kavaro {

namespace {

constexpr std::size_t kSamplesAtOnce = 512;  // until it is asked whether to go on
constexpr int kSampleThreads = 4;            // more than processors: they wait for the disk

std::string pathOf(const TuvNode* node) {
    return std::string(node->filePath());
}

std::int64_t nanoseconds(const struct timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

FileIdentity identityOf(const struct stat& info) {
    return {info.st_dev, info.st_ino, static_cast<std::uint64_t>(info.st_size), nanoseconds(info.st_mtim),
            nanoseconds(info.st_ctim)};
}

const TuvNode* rootOf(const TuvNode* node) {
    while (node->parent()) node = node->parent();
    return node;
}

// Why there is no digest. The server may have been allowed more than this process is.
std::string reasonOf(const std::string& path, bool isKnown, const FileIdentity& identity) {
    struct stat info {};
    if (const int error = fileStatusAtPath(path, &info); error != 0) return errorText(error);
    if (access(path.c_str(), R_OK) != 0) return errorText(errno);
    return isKnown && identityOf(info) != identity ? "it changed while it was read" : "it could not be read";
}

std::set<std::uint32_t> filesIn(const TuvObjectArray* group) {
    std::set<std::uint32_t> ids;
    for (const TuvObject* node : *group) ids.insert(node->objectID());
    return ids;
}

}  // namespace

bool DuplicateSearch::prepare(DigestCache* cache, const GoesOn& goesOn) {
    // All candidates as the files of one folder, so that files of all trees meet. They keep their own parents.
    auto all = make<TuvDirNode>();
    for (const TuvRef<TuvDirNode>& root : _roots) {
        const TuvRef<TuvObjectArray> candidates = root->potentialyDuplicateChildren();
        for (int i = 0; i < candidates->count(); ++i) {
            TuvNode* node = candidates->nodeAtIndex(i);
            if (node->logicalSize() >= _smallestSize) all->files()->addObject(node);
        }
    }
    _candidates = static_cast<std::uint64_t>(all->fileCount());
    const TuvRef<TuvObjectArray> groups = all->potentialyDuplicateFiles();
    for (int i = 0; i < groups->count(); ++i) takeGroup(groups->arrayAtIndex(i));
    if (cache) takeKnownDigests(*cache);
    if (!takeSamples(goesOn)) return false;
    splitBySample();
    _records->sortByFunction(TuvNodeMD5Hash_sortByInode);
    _toDigest = TuvNodeMD5Hash::fileNodesToReload(oneNameOfEach(_groups.get()).get(), _records.get());
    return true;
}

// The folder that a node is in, whatever the way to it.
const DuplicateSearch::FolderKey& DuplicateSearch::folderOf(const TuvNode* node) {
    const TuvNode* folder = node->parent();
    const auto [place, isNew] = _folders.try_emplace(folder);
    if (!isNew) return place->second;
    struct stat info {};
    if (const std::string path = pathOf(folder); folderStatusAtPath(path, &info) == 0) {
        place->second.first = {info.st_dev, info.st_ino};
    } else {
        place->second.second = path;
    }
    return place->second;
}

// Gives the node the number of its file. False when it is none, or none any more. What may not be looked at stays: the
// server may read it all the same.
bool DuplicateSearch::lookAt(TuvNode* node) {
    struct stat info {};
    File file;
    file.seen = std::llround(_now() * 1e9);
    std::pair<bool, FileKey> key;
    const int error = fileStatusAtPath(pathOf(node), &info);
    if (error == 0) {
        if (!S_ISREG(info.st_mode) || static_cast<std::uint64_t>(info.st_size) != node->logicalSize()) return false;
        file.isKnown = true;
        file.identity = identityOf(info);
        file.links = info.st_nlink;
        key = {true, {info.st_dev, info.st_ino}};
    } else {
        if (error == ENOENT || error == ENOTDIR) return false;
        key = {false, {reinterpret_cast<std::uintptr_t>(rootOf(node)), node->inode()}};
    }
    const auto [place, isNew] = _fileIDs.try_emplace(key, static_cast<std::uint32_t>(_files.size() + 1));
    if (isNew) _files.push_back(file);
    File& known = _files[place->second - 1];
    // More names than the disk counts: one of them is another one in disguise, as a file that is mounted on a file is.
    if (known.isKnown && known.names > 0 && known.names >= known.links) return false;
    ++known.names;
    _measuredIDs.emplace(node, node->inode());
    node->setInode(place->second);
    return true;
}

void DuplicateSearch::takeGroup(const TuvObjectArray* group) {
    auto members = make<TuvObjectArray>(group->count());
    std::set<std::pair<FolderKey, std::string>> names;  // folders may lie within each other, or be the same
    for (int i = 0; i < group->count(); ++i) {
        TuvNode* node = group->nodeAtIndex(i);
        if (!names.emplace(folderOf(node), lastPathComponent(pathOf(node))).second) continue;
        if (lookAt(node)) members->addObject(node);
    }
    addGroup(std::move(members));
}

void DuplicateSearch::addGroup(TuvRef<TuvObjectArray> members) {
    if (members->count() < 2) return;
    TuvObjectArray* groups = filesIn(members.get()).size() > 1 ? _groups.get() : _linkGroups.get();
    groups->adoptObject(members.leak());
}

TuvRef<TuvObjectArray> DuplicateSearch::oneNameOfEach(const TuvObjectArray* groups) const {
    const TuvRef<TuvObjectArray> flat = TuvNodeMD5Hash::flatenArray(groups);
    auto nodes = make<TuvObjectArray>(flat->count());
    std::vector<bool> isTaken(_files.size() + 1);
    for (int i = 0; i < flat->count(); ++i) {
        TuvNode* node = flat->nodeAtIndex(i);
        if (isTaken[node->inode()]) continue;
        isTaken[node->inode()] = true;
        nodes->addObject(node);
    }
    return nodes;
}

void DuplicateSearch::takeKnownDigests(DigestCache& cache) {
    const TuvRef<TuvObjectArray> nodes = oneNameOfEach(_groups.get());
    for (int i = 0; i < nodes->count(); ++i) {
        const TuvNode* node = nodes->nodeAtIndex(i);
        File& file = fileOf(node);
        const auto digest = file.isKnown ? cache.find(pathOf(node), file.identity) : std::nullopt;
        if (!digest) continue;
        file.hasDigest = true;
        auto record = make<TuvNodeMD5Hash>(node);
        record->setMD5Hash(*digest);
        _records->adoptObject(record.leak());
    }
}

bool DuplicateSearch::isWhollyKnown(const TuvObjectArray* group) const {
    for (int i = 0; i < group->count(); ++i)
        if (!fileOf(group->nodeAtIndex(i)).hasDigest) return false;
    return true;
}

bool DuplicateSearch::takeSamples(const GoesOn& goesOn) {
    auto groups = make<TuvObjectArray>();
    for (int i = 0; i < _groups->count(); ++i)
        if (!isWhollyKnown(_groups->arrayAtIndex(i))) groups->addObject(_groups->objectAtIndex(i));
    const TuvRef<TuvObjectArray> nodes = oneNameOfEach(groups.get());
    const auto count = static_cast<std::size_t>(nodes->count());
    for (std::size_t begin = 0; begin < count; begin += kSamplesAtOnce) {
        if (goesOn && !goesOn({begin, count})) return false;
        const std::size_t length = std::min(kSamplesAtOnce, count - begin);
        std::vector<std::string> paths;
        for (std::size_t i = 0; i < length; ++i)
            paths.push_back(pathOf(nodes->nodeAtIndex(static_cast<int>(begin + i))));
        forEachIndex(length, kSampleThreads, [&](std::size_t i) {
            const TuvNode* node = nodes->nodeAtIndex(static_cast<int>(begin + i));
            fileOf(node).sample = contentSample(paths[i], node->logicalSize());
        });
    }
    return true;
}

// A member that we cannot read may be as any other: its group stays whole.
void DuplicateSearch::splitBySample() {
    const TuvRef<TuvObjectArray> groups = std::exchange(_groups, make<TuvObjectArray>());
    for (int i = 0; i < groups->count(); ++i) {
        TuvObjectArray* group = groups->arrayAtIndex(i);
        std::map<std::uint64_t, TuvRef<TuvObjectArray>> parts;
        bool isSampled = true;
        for (int k = 0; k < group->count(); ++k) {
            TuvNode* node = group->nodeAtIndex(k);
            const std::optional<std::uint64_t> sample = fileOf(node).sample;
            isSampled = sample.has_value();
            if (!isSampled) break;
            TuvRef<TuvObjectArray>& part = parts[*sample];
            if (!part) part = make<TuvObjectArray>();
            part->addObject(node);
        }
        if (!isSampled) {
            _groups->addObject(group);
            continue;
        }
        for (auto& [sample, part] : parts) addGroup(std::move(part));
    }
}

void DuplicateSearch::takeIn(const TuvObjectArray* fresh, DigestCache& cache) {
    for (int i = 0; i < fresh->count(); ++i) {
        const auto* record = TuvNodeMD5Hash::atIndex(fresh, i);
        const std::string path = record->filePath().value_or("");
        const File& file = _files[record->inode() - 1];
        if (record->md5Hash().empty()) {
            _undigested.push_back({path, reasonOf(path, file.isKnown, file.identity)});
            continue;
        }
        struct stat info {};
        if (file.isKnown && fileStatusAtPath(path, &info) == 0 && identityOf(info) == file.identity)
            cache.add(*record, file.identity, file.seen);
    }
    _records->addObjectsFromArray(fresh);
    _records->sortByFunction(TuvNodeMD5Hash_sortByInode);
    TuvNodeMD5Hash::cleanedArray(_records.get());
}

// The rule for real groups compares with the first member of a group and keeps members without a record: it is given
// groups in which all have a record, and the same digest.
TuvRef<TuvObjectArray> DuplicateSearch::splitByDigest(const TuvObjectArray* records) const {
    auto split = make<TuvObjectArray>();
    for (int i = 0; i < _groups->count(); ++i) {
        const TuvObjectArray* group = _groups->arrayAtIndex(i);
        std::map<std::string, TuvRef<TuvObjectArray>> parts;
        for (int k = 0; k < group->count(); ++k) {
            TuvNode* node = group->nodeAtIndex(k);
            const TuvNodeMD5Hash* record = TuvNodeMD5Hash::recordOfNode(records, node);
            if (!record) continue;
            TuvRef<TuvObjectArray>& part = parts[record->md5Hash()];
            if (!part) part = make<TuvObjectArray>();
            part->addObject(node);
        }
        for (auto& [digest, part] : parts)
            if (part->count() > 1) split->adoptObject(part.leak());
    }
    return split;
}

std::vector<DuplicateGroup> DuplicateSearch::finish(const TuvObjectArray* fresh, DigestCache& cache) {
    takeIn(fresh, cache);
    const TuvRef<TuvObjectArray> potential = splitByDigest(_records.get());
    const TuvRef<TuvObjectArray> real = TuvNodeMD5Hash::duplicateFiles(potential.get(), _records.get());
    std::vector<DuplicateGroup> groups;
    for (int i = 0; i < real->count(); ++i) groups.push_back(described(real->arrayAtIndex(i)));
    for (int i = 0; i < _linkGroups->count(); ++i) groups.push_back(described(_linkGroups->arrayAtIndex(i)));
    std::sort(groups.begin(), groups.end(), [](const DuplicateGroup& a, const DuplicateGroup& b) {
        if (a.waste != b.waste) return a.waste > b.waste;
        if (a.size != b.size) return a.size > b.size;
        return compare(a.files.front().path, b.files.front().path) < 0;
    });
    return groups;
}

DuplicateGroup DuplicateSearch::described(const TuvObjectArray* group) const {
    DuplicateGroup result;
    result.size = group->nodeAtIndex(0)->logicalSize();
    result.waste = wasteOf(group);
    if (const TuvNodeMD5Hash* record = TuvNodeMD5Hash::recordOfNode(_records.get(), group->nodeAtIndex(0)))
        result.digest = record->md5Hash();
    for (int i = 0; i < group->count(); ++i) {
        const TuvNode* node = group->nodeAtIndex(i);
        result.files.push_back({pathOf(node), node, node->inode(), -1, false});
    }
    std::sort(result.files.begin(), result.files.end(),
              [](const DuplicateFile& a, const DuplicateFile& b) { return compare(a.path, b.path) < 0; });
    std::map<std::uint32_t, std::pair<int, std::uint64_t>> names;  // of each file: the first, and how many
    for (std::size_t i = 0; i < result.files.size(); ++i) {
        DuplicateFile& file = result.files[i];
        const auto [first, isFirst] = names.try_emplace(file.inode, static_cast<int>(i), 0);
        ++first->second.second;
        if (!isFirst) file.sameAs = first->second.first;
    }
    for (DuplicateFile& file : result.files) {
        file.hasNamesElsewhere = fileOf(file.node).links > names[file.inode].second;
        file.inode = _measuredIDs.at(file.node);
    }
    return result;
}

// A file that has names elsewhere is not freed, whatever is removed here; so it is one to keep.
std::uint64_t DuplicateSearch::wasteOf(const TuvObjectArray* group) const {
    struct Names {
        std::uint64_t size = 0, count = 0, links = 0;
    };
    std::map<std::uint32_t, Names> files;
    for (int i = 0; i < group->count(); ++i) {
        const TuvNode* node = group->nodeAtIndex(i);
        Names& names = files[node->inode()];
        names.size = std::max(names.size, node->physicalSize());
        names.links = fileOf(node).links;
        ++names.count;
    }
    std::uint64_t sum = 0, largest = 0;
    bool keepsOne = false;
    for (const auto& [id, names] : files) {
        if (names.links > names.count) {
            keepsOne = true;
            continue;
        }
        sum += names.size;
        largest = std::max(largest, names.size);
    }
    return keepsOne ? sum : sum - largest;
}

}  // namespace kavaro
