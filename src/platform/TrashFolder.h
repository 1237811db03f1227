#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/MountTable.h"
#include "platform/SafeFolder.h"

namespace kavaro {

// One folder of the freedesktop.org Trash, held open: "files" holds what was thrown away, "info" says of each where it
// was and when it came. Made and checked on opening: it is no link and belongs to this user. One thread at a time.
class TrashFolder {
  public:
    // In the folder of the user's data, which is made when the user has a home; links on the way there are the user's
    // own and followed. Null, with errno, when it cannot be used.
    static std::unique_ptr<TrashFolder> ofUser(int* error);
    // On a mounted volume: ".Trash/UID", where the volume has a sticky ".Trash".
    static std::unique_ptr<TrashFolder> sharedOfVolume(const Mount& mount, int* error);
    // On a mounted volume: ".Trash-UID".
    static std::unique_ptr<TrashFolder> ownOfVolume(const Mount& mount, int* error);

    // Moves an entry into it. `path` is where the entry was, absolute; `date` when. First comes the info file, made
    // exclusively, which takes the name; then the entry is renamed and replaces nothing. 0, or errno: nothing was done
    // then. EXDEV: the entry lies on another volume.
    int take(const SafePlace& place, std::string_view path, std::string_view date);
    // Name of the last one taken.
    const std::string& lastName() const { return _lastName; }

    // Absolute, without links; empty when unknown.
    const std::string& path() const { return _path; }
    // On which it is; 0 when the kernel does not tell.
    std::uint64_t mount() const { return _mount; }

    // The text of an info file. `place` is an absolute path, or one relative to the volume; any bytes.
    static std::string infoText(std::string_view place, std::string_view date);
    // A name for the `number`th entry (from 1) of that name: "a.tar", "a.2.tar". Cut, between characters, to what fits
    // into a folder together with the ending of an info file.
    static std::string numberedName(std::string_view name, std::uint64_t number, std::size_t longest = kLongestName);

    static constexpr std::string_view kInfoEnding = ".trashinfo";
    static constexpr std::size_t kLongestName = 255 - kInfoEnding.size();  // bytes

  private:
    TrashFolder() = default;
    static std::unique_ptr<TrashFolder> in(int parent, const std::string& name, std::string volume, int* error);
    int reserve(const std::string& name, const std::string& info);
    int moveIn(const SafePlace& place, const std::string& name);
    std::string placeText(std::string_view path) const;

    FileDescriptor _files, _info;
    std::string _path;
    std::uint64_t _mount = 0;
    std::string _volume;  // paths below it are written relative to it; empty: never
    std::string _lastName;
    std::map<std::string, std::uint64_t> _lastNumbers;  // by name: the last number that was taken
};

}  // namespace kavaro
