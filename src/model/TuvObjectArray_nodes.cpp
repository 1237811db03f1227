// What an array of nodes can say of its elements, and lists made of them.

#include <algorithm>

#include "model/ModelLog.h"
#include "model/NodeFilterRule.h"
#include "model/TuvDirNode.h"
#include "support/Stopwatch.h"

namespace kavaro {

namespace {

// Bytes that stand for themselves in the path of a URL.
bool isPathCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           (c != 0 && std::string_view("/-._~!$&'()*+,=:@").find(c) != std::string_view::npos);
}

std::string fileURL(std::string_view path) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string url = "file://";
    for (char c : path) {
        if (isPathCharacter(c)) {
            url += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            url += '%';
            url += kDigits[byte >> 4];
            url += kDigits[byte & 15];
        }
    }
    return url;
}

std::uint64_t physicalSizeOfSlot(const void* slot) {
    return static_cast<const TuvObjectArray*>(*static_cast<const TuvObject* const*>(slot))->physicalSize();
}

}  // namespace

void TuvObjectArray::setParent(TuvDirNode* parent) {
    for (TuvObject* object : *this) asNode(object)->setParent(parent);
}

std::uint64_t TuvObjectArray::logicalSize() const {
    std::uint64_t sum = 0;
    for (TuvObject* object : *this) sum += asNode(object)->logicalSize();
    return sum;
}

std::uint64_t TuvObjectArray::physicalSize() const {
    std::uint64_t sum = 0;
    for (TuvObject* object : *this) sum += asNode(object)->physicalSize();
    return sum;
}

int TuvObjectArray::fileCount() const {
    return static_cast<int>(
        std::count_if(begin(), end(), [](TuvObject* object) { return asNode(object)->flags() & TuvNode::kFile; }));
}

int TuvObjectArray::folderCount() const {
    return static_cast<int>(
        std::count_if(begin(), end(), [](TuvObject* object) { return asNode(object)->flags() & TuvNode::kFolder; }));
}

int TuvObjectArray::recursiveFileCount() const {
    int sum = 0;
    for (TuvObject* object : *this) sum += asNode(object)->recursiveFileCount();
    return sum;
}

int TuvObjectArray::recursiveFolderCount() const {
    int sum = 0;
    for (TuvObject* object : *this) sum += asNode(object)->recursiveFolderCount();
    return sum;
}

bool TuvObjectArray::isResolved() const {
    return std::all_of(begin(), end(), [](TuvObject* object) { return asNode(object)->isResolved(); });
}

void TuvObjectArray::unloadNodes() {
    for (TuvObject* object : *this) asFolder(object)->unloadNodes();
}

std::vector<std::string> TuvObjectArray::filePaths() const {
    const Stopwatch watch;
    std::vector<std::string> paths;
    paths.reserve(static_cast<std::size_t>(_count));
    for (TuvObject* object : *this) paths.emplace_back(asNode(object)->filePath());
    TuvLog::info(tuvObjectArrayLog, "filePaths", "%d nodes, in %9.3f ms", _count, watch.milliseconds());
    return paths;
}

std::vector<std::string> TuvObjectArray::fileURLs() const {
    const Stopwatch watch;
    std::vector<std::string> urls;
    urls.reserve(static_cast<std::size_t>(_count));
    for (TuvObject* object : *this) urls.push_back(fileURL(asNode(object)->filePath()));
    TuvLog::info(tuvObjectArrayLog, "fileURLs", "%d nodes, in %9.3f ms", _count, watch.milliseconds());
    return urls;
}

TuvRef<TuvObjectArray> TuvObjectArray::filterUsing(const NodeFilterRule& filter, bool flag) const {
    auto passed = make<TuvObjectArray>(_count + 1);
    for (TuvObject* object : *this)
        if (asNode(object)->filterUsing(filter, flag)) passed->addObject(object);
    return passed;
}

TuvRef<TuvObjectArray> TuvObjectArray::filterUsing(const NodeFilterRule* filter, signed char flag) const {
    return filterUsing(*filter, flag != 0);
}

TuvRef<TuvObjectArray> TuvObjectArray::toArraysInChunks(int length) const {
    length = std::max(length, 1);
    auto chunks = make<TuvObjectArray>();
    for (int from = 0; from < _count;) {
        const int taken = std::min(length, _count - from);
        auto chunk = make<TuvObjectArray>(taken);
        for (int i = 0; i < taken; ++i) chunk->addObject(_items[from + i]);
        chunks->adoptObject(chunk.leak());
        from += taken;
    }
    return chunks;
}

TuvRef<TuvObjectArray> TuvObjectArray::toArraysInChunksWithLogicalSize(int maximumBytes, int maximumCount) const {
    auto chunks = make<TuvObjectArray>();
    TuvRef<TuvObjectArray> chunk;
    std::uint32_t sum = 0;  // of the low halves alone; read as a signed number
    for (TuvObject* object : *this) {
        if (!chunk) {
            chunk = make<TuvObjectArray>();
            sum = 0;
        }
        chunk->addObject(object);
        sum += static_cast<std::uint32_t>(asNode(object)->logicalSize());
        if (static_cast<std::int32_t>(sum) >= maximumBytes || chunk->count() >= maximumCount)
            chunks->adoptObject(chunk.leak());
    }
    chunks->adoptObject(chunk.leak());
    return chunks;
}

int TuvObjectArray_sortByPhysicalSize(const void* a, const void* b) {
    const std::uint64_t first = physicalSizeOfSlot(a);
    const std::uint64_t second = physicalSizeOfSlot(b);
    return second > first ? 1 : second < first ? -1 : 0;
}

void debug(const TuvObjectArray* array) {
    TuvLog::info(tuvObjectArrayLog, "debug", "%d items", array->count());
    for (TuvObject* object : *array) TuvLog::info(tuvObjectArrayLog, "debug", "%d", object->objectID());
}

}  // namespace kavaro
