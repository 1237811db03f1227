#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/BusValue.h"
#include "platform/GlibHandles.h"
#include "platform/MemoryFile.h"

namespace kavaro {

using FilePtr = std::shared_ptr<const FileHandle>;
using FileList = std::vector<FilePtr>;

// For sources of platform only. A handle (h) inside `value` is an index into `files`; one that came from outside may
// point past its end.
struct BusValue::Impl {
    VariantRef value;
    std::shared_ptr<const FileList> files;  // null for none
};

BusValue makeBusValue(VariantRef value, std::shared_ptr<const FileList> files = nullptr);

// A new reference to the value behind any number of variants; null for no value, and for another type.
VariantRef plainValue(const BusValue& value);
VariantRef plainValue(const BusValue& value, const char* type);

// Gathers values whose handles count from zero each into one message or container with one list of files.
class FileGatherer {
  public:
    // The same value with handles that count in the gathered list; a new reference.
    VariantRef add(const BusValue& value);
    std::shared_ptr<const FileList> files() const;

  private:
    VariantRef renumber(GVariant* value, const FileList& files);
    gint32 indexOf(const FilePtr& file);
    FileList _files;
};

// What a kind of bus takes. Beyond these the bus drops the sender's connection without a word.
struct BusLimits {
    std::size_t messageBytes;
    std::size_t files;
};

constexpr std::size_t kLongestArray = 64u << 20;
constexpr std::size_t kLongestSignature = 255;

// The body of a message and its files. False, with the reason, when it cannot be sent.
struct BusBody {
    VariantRef tuple;
    GlibRef<GUnixFDList> files;  // null for none
};
bool packBody(const std::vector<BusValue>& arguments, const BusLimits& limits, BusBody* body, std::string* reason);

// The arguments of a message that has arrived. Takes the files out of it, so it works once per message.
std::vector<BusValue> unpackBody(GDBusMessage* message);

// Bytes that a value takes in a message when it begins at `offset`; `arrayTooLong` is set when a bus would refuse it.
std::size_t wireSize(GVariant* value, std::size_t offset, bool* arrayTooLong);

}  // namespace kavaro
