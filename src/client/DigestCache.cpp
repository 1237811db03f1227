#include "client/DigestCache.h"

#include <array>
#include <cstring>
#include <limits>
#include <vector>

#include "model/serialization/ByteFields.h"
#include "platform/FileContent.h"
#include "platform/MD5.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

// The file: this line, the MD5 of all that follows it, the number of records and their bytes as 64-bit numbers, that
// many identities, and the hash records in their full form. Numbers in host order: a cache does not travel.
constexpr std::string_view kMagic = "Kavaro digests 1\n";
// What is read again is counted in signed 32-bit numbers.
constexpr std::size_t kMostFileBytes = std::numeric_limits<int>::max();
constexpr std::size_t kMostRecordBytes = kMostFileBytes / 2;
constexpr std::size_t kBodyOffset = kMagic.size() + std::tuple_size_v<MD5Digest>;

struct BodyHead {
    std::uint64_t count = 0;
    std::uint64_t recordBytes = 0;
};

bool isBelow(std::string_view path, std::string_view folder) {
    if (folder == "/") return true;
    return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

}  // namespace

void DigestCache::load() {
    _entries.clear();
    if (_path.empty()) return;
    std::string bytes;
    if (readFileAtPath(_path, kMostFileBytes, &bytes) != 0 || !read(bytesOf(bytes))) _entries.clear();
}

bool DigestCache::read(ByteView bytes) {
    if (bytes.size() < kBodyOffset || !textOf(bytes).starts_with(kMagic)) return false;
    const ByteView body = bytes.subspan(kBodyOffset);
    const MD5Digest digest = md5Of(body);
    if (std::memcmp(digest.data(), bytes.data() + kMagic.size(), digest.size()) != 0) return false;
    BodyHead head;
    if (body.size() < sizeof head) return false;
    std::memcpy(&head, body.data(), sizeof head);
    const std::size_t room = body.size() - sizeof head;
    if (head.count == 0) return head.recordBytes == 0 && room == 0;
    if (head.count > room / sizeof(FileIdentity)) return false;
    const std::size_t identityBytes = head.count * sizeof(FileIdentity);
    if (head.recordBytes != room - identityBytes) return false;
    const MD5HashHeader header = {{"instanceCount", std::to_string(head.count)},
                                  {"dataSize", std::to_string(head.recordBytes)}};
    const auto records = TuvNodeMD5Hash::deserialize_TuvObjectArray(header, body.subspan(sizeof head + identityBytes));
    if (!records) return false;
    _entries.reserve(head.count);
    for (std::size_t i = 0; i < head.count; ++i) {
        TuvNodeMD5Hash* record = TuvNodeMD5Hash::atIndex(records.get(), static_cast<int>(i));
        Entry entry;
        std::memcpy(&entry.identity, body.data() + sizeof head + i * sizeof(FileIdentity), sizeof(FileIdentity));
        entry.record = TuvRef<TuvNodeMD5Hash>::share(record);
        if (!record->md5Hash().empty()) _entries.insert_or_assign(record->filePath().value_or(""), std::move(entry));
    }
    return true;
}

std::optional<std::string> DigestCache::find(const std::string& path, const FileIdentity& identity) {
    const auto found = _entries.find(path);
    if (found == _entries.end() || found->second.identity != identity) return std::nullopt;
    found->second.isUsed = true;
    return found->second.record->md5Hash();
}

void DigestCache::add(const TuvNodeMD5Hash& record, const FileIdentity& identity, std::int64_t now) {
    if (_path.empty() || record.md5Hash().empty() || !record.filePath()) return;
    if (identity.changed > now - kUncertainNanoseconds || identity.modified > now - kUncertainNanoseconds) return;
    Entry entry{identity, TuvRef<TuvNodeMD5Hash>::share(const_cast<TuvNodeMD5Hash*>(&record)), true};
    _entries.insert_or_assign(*record.filePath(), std::move(entry));
    _isChanged = true;
}

void DigestCache::forgetUnusedBelow(std::string_view folder) {
    const auto isStale = [&](const auto& entry) { return !entry.second.isUsed && isBelow(entry.first, folder); };
    if (std::erase_if(_entries, isStale) > 0) _isChanged = true;
}

int DigestCache::save() {
    if (_path.empty() || !_isChanged) return 0;
    std::vector<const Entry*> kept;
    for (const bool isUsed : {true, false})
        for (const auto& [path, entry] : _entries)
            if (entry.isUsed == isUsed && kept.size() < kMostRecords) kept.push_back(&entry);
    BodyHead head;
    ByteBuffer records, body;
    std::vector<FileIdentity> identities;
    for (const Entry* entry : kept) {
        if (records.size() > kMostRecordBytes) break;
        entry->record->serialize(records, 0);
        identities.push_back(entry->identity);
    }
    head.count = identities.size();
    head.recordBytes = records.size();
    serializeIVar(body, &head, sizeof head);
    body.append(identities.data(), identities.size() * sizeof(FileIdentity));
    body.append(records.data(), records.size());
    const MD5Digest digest = md5Of(body.view());
    std::string content(kMagic);
    content.append(reinterpret_cast<const char*>(digest.data()), digest.size());
    content.append(textOf(body.view()));
    if (const int error = makePrivateFolder(stringByDeletingLastPathComponent(_path)); error != 0) return error;
    const int error = replaceFile(_path, content);
    _isChanged = error != 0;
    return error;
}

}  // namespace kavaro
