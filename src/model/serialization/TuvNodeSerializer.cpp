#include "model/serialization/TuvNodeSerializer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/Backtrace.h"
#include "support/TuvLog.h"

namespace kavaro {

namespace {

constinit const LogComponent serializerLog("TuvNodeSerializer");
// Room for the record or the name that takes a buffer over the limit.
constexpr std::size_t kBufferCapacity = TuvNodeSerializer::kFlushBytes + 512;

bool openFile(const std::string& path, ByteBuffer& buffer, int& file) {
    buffer = ByteBuffer(kBufferCapacity);
    file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file >= 0) return true;
    TuvLog::error(serializerLog, "TuvNodeSerializer_alloc", "Can't open \"%@\": %s", path, std::strerror(errno));
    return false;
}

void closeFile(int& file) {
    if (file < 0) return;
    // A pipe or a device that cannot be synchronized is no loss.
    if (fsync(file) != 0 && errno != EINVAL && errno != EROFS)
        TuvLog::error(serializerLog, "TuvNodeSerializer_dealloc", "fileDescriptor %d: %s", file, std::strerror(errno));
    close(file);
    file = -1;
}

// Gives the number of bytes that went, written or lost.
std::size_t flush(ByteBuffer& buffer, int file, bool force) {
    if (!force && buffer.size() <= TuvNodeSerializer::kFlushBytes) return 0;
    const std::size_t length = buffer.size();
    serializeBytes(file, buffer);
    if (buffer.capacity() == kBufferCapacity) {
        buffer.clear();
    } else {
        buffer = ByteBuffer(kBufferCapacity);
    }
    return length;
}

}  // namespace

bool TuvNodeSerializer_alloc(TuvNodeSerializer& serializer, const std::string& indexPath, const std::string& nodePath,
                             const std::string& dataPath) {
    serializer = TuvNodeSerializer();
    if (openFile(indexPath, serializer.indexBuffer, serializer.indexFile) &&
        openFile(nodePath, serializer.nodeBuffer, serializer.nodeFile) &&
        openFile(dataPath, serializer.dataBuffer, serializer.dataFile)) {
        return true;
    }
    TuvNodeSerializer_dealloc(serializer);
    return false;
}

void TuvNodeSerializer_dealloc(TuvNodeSerializer& serializer) {
    serializer.dataBuffer = ByteBuffer();
    closeFile(serializer.indexFile);
    closeFile(serializer.nodeFile);
    closeFile(serializer.dataFile);
    serializer.indexBuffer = ByteBuffer();
    serializer.nodeBuffer = ByteBuffer();
}

void serializeIndexBytes(TuvNodeSerializer& serializer, bool force) {
    serializer.indexBytes += static_cast<std::uint32_t>(flush(serializer.indexBuffer, serializer.indexFile, force));
}

void serializeNodeBytes(TuvNodeSerializer& serializer, bool force) {
    serializer.nodeBytes += static_cast<std::uint32_t>(flush(serializer.nodeBuffer, serializer.nodeFile, force));
}

void serializeDataBytes(TuvNodeSerializer& serializer, bool force) {
    flush(serializer.dataBuffer, serializer.dataFile, force);
}

void serializeBytes(int fileDescriptor, const ByteBuffer& data) {
    for (std::size_t done = 0; done < data.size();) {
        const ssize_t written = write(fileDescriptor, data.data() + done, data.size() - done);
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else if (errno != EINTR) {
            const int error = errno;
            TuvLog::error(serializerLog, "serializeBytes", "%d bytes on fileDescriptor %d", data.size(),
                          fileDescriptor);
            TuvLog::error(serializerLog, "serializeBytes", "Exception: %@", std::strerror(error));
            TuvLog::error(serializerLog, "serializeBytes", "(%@)", backtrace());
            return;
        }
    }
}

}  // namespace kavaro
