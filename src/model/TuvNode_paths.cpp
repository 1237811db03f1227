#include <algorithm>

#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

// Names have no slash in them; whatever has one is left to the general rule.
void appendPathComponent(std::string& path, std::string_view name) {
    const bool plain = !path.empty() && !name.empty() && name.find('/') == std::string_view::npos;
    if (plain && path == "/") {
        path += name;
    } else if (plain && path.back() != '/') {
        path += '/';
        path += name;
    } else {
        path = stringByAppendingPathComponent(path, name);
    }
}

bool isInnerByte(char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0) == 0x80;
}

// Position of the character behind the one at `position`, or the end of the text. Never within a character.
std::size_t behindCharacter(std::string_view text, std::size_t position) {
    if (position < text.size()) ++position;
    while (position < text.size() && isInnerByte(text[position])) ++position;
    return position;
}

}  // namespace

std::string_view TuvNode::fileName() const {
    return _fileName.isNull() ? kNoFileName : _fileName.view();
}

void TuvNode::setFileName(std::string_view name) {
    if (tuvNodeLog.traceOn()) TuvLog::trace(tuvNodeLog, "setFileName", "%@", name);
    if (_fileName.isNull() == (name.data() == nullptr) && _fileName.view() == name) return;
    _fileName.set(name);
    _filePath.reset();
}

void TuvNode::setFileName(NodeText name) {
    if (tuvNodeLog.traceOn()) TuvLog::trace(tuvNodeLog, "setFileName", "%@", name.view());
    if (_fileName.isNull() == name.isNull() && _fileName.view() == name.view()) return;
    _fileName = std::move(name);
    _filePath.reset();
}

std::string TuvNode::convertedFileName() const {
    std::string name(fileName());
    if (hasFileName()) std::replace(name.begin(), name.end(), '/', ':');
    return name;
}

std::string TuvNode::fileExtension() const {
    return hasFileName() ? pathExtension(fileName()) : std::string(kNoFileName);
}

std::string TuvNode::fileNameWithoutExtension() const {
    return hasFileName() ? stringByDeletingPathExtension(lastPathComponent(fileName())) : std::string(kNoFileName);
}

// The path, up from the nearest node that knows its own. On the way back every node keeps its path while it is short.
std::string TuvNode::composePath() const {
    std::vector<const TuvNode*> below;
    const TuvNode* node = this;
    for (; node->_filePath.isNull() && !node->_fileName.isNull() && node->_parent; node = node->_parent)
        below.push_back(node);
    const auto keep = [](const TuvNode* of, const std::string& path) {
        if (path.size() <= kCachedAncestorPathLimit) of->_filePath.set(path);
    };
    std::string path;
    if (!node->_filePath.isNull()) {
        path = node->_filePath.view();
    } else if (node->_fileName.isNull()) {
        path = kNoPath;
    } else {
        path = node->_fileName.view();
        keep(node, path);
    }
    for (auto next = below.rbegin(); next != below.rend(); ++next) {
        appendPathComponent(path, (*next)->_fileName.view());
        keep(*next, path);
    }
    return path;
}

std::string_view TuvNode::filePath() const {
    if (_filePath.isNull()) {
        if (_fileName.isNull()) return kNoPath;
        const std::string path = composePath();
        if (_filePath.isNull()) _filePath.set(path);
    }
    return _filePath.view();
}

// The same text as filePath(), but a long path is not kept.
std::string TuvNode::description() const {
    return composePath();
}

void TuvNode::setFilePath(std::string_view path) {
    if (_filePath.isNull() == (path.data() == nullptr) && _filePath.view() == path) return;
    _filePath.set(path);
}

void TuvNode::setParent(TuvDirNode* parent) {
    if (parent == _parent) {
        TuvLog::error(tuvNodeLog, "setParent", "Same or Null value");
        return;
    }
    if (tuvNodeLog.traceOn())
        TuvLog::trace(tuvNodeLog, "setParent", "%@", parent ? parent->fileName() : std::string_view("(null)"));
    _parent = parent;
    _filePath.reset();
}

std::string TuvNode::filePathRelativeOfNode(const TuvNode* other) const {
    std::string path = description();
    if (!other) return path;
    std::size_t length = 0;
    const std::size_t found = findCaseInsensitive(path, other->description(), &length);
    if (found == std::string::npos) return path;
    if (found > 0) {
        // As many characters, which may be longer or shorter than those that matched.
        std::size_t characters = 0;
        for (std::size_t at = found; at < found + length; at = behindCharacter(path, at)) ++characters;
        for (length = 0; characters > 0; --characters) length = behindCharacter(path, length);
    }
    path.erase(0, length);
    return path;
}

void TuvNode::setFileNameAsChildOfParent() {
    if (!hasFileName()) {
        TuvLog::error(tuvNodeLog, "setFileNameAsChildOfParent", "No File Name !!!");
        return;
    }
    if (!_parent) return;
    const std::string above = _parent->description();
    const std::string name(fileName());
    const std::size_t found = above.empty() ? std::string::npos : name.find(above);
    if (found == std::string::npos) return;
    std::size_t rest = found + above.size();
    if (above != "/") {
        if (rest == name.size()) return;
        rest = behindCharacter(name, rest);
    }
    setFileName(std::string_view(name).substr(rest));
}

TuvRef<TuvObjectArray> TuvNode::parentChain(const TuvNode* upTo, bool includeUpTo) {
    if (tuvNodeLog.debugOn()) TuvLog::debug(tuvNodeLog, "parentChain", "%@", fileName());
    auto chain = make<TuvObjectArray>(8);
    for (TuvNode* node = this; node && node != upTo; node = node->_parent) chain->insertObjectAtIndex(node, 0);
    if (includeUpTo) chain->insertObjectAtIndex(const_cast<TuvNode*>(upTo), 0);
    return chain;
}

}  // namespace kavaro
