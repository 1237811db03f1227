#include <algorithm>
#include <map>
#include <random>

#include "EventTest.h"
#include "fsevents/BatchResolver.h"

namespace kavaro {
namespace {

struct SimpleEvent {
    std::string type;
    std::int32_t inode;
    std::string path;
    std::string destination;
    std::vector<SimpleEvent> later;
};

std::string textOf(const SimpleEvent& event) {
    std::string text = event.type + " " + std::to_string(static_cast<std::uint32_t>(event.inode)) + " " + event.path;
    if (!event.destination.empty()) text += " -> " + event.destination;
    if (event.later.empty()) return text;
    text += " [";
    for (const SimpleEvent& later : event.later) text += (&later == event.later.data() ? "" : ", ") + textOf(later);
    return text + "]";
}

std::string lowercase(std::string text) {
    for (char& c : text) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return text;
}

bool isCreation(const SimpleEvent& event) {
    return event.type == "CREATE_FILE" || event.type == "CREATE_DIR";
}

// The table of rules, line by line.
class Twin {
  public:
    void arrive(const SimpleEvent& event) {
        auto found = _waiting.find(event.inode);
        if (found == _waiting.end()) {
            _waiting.emplace(event.inode, event);
            return;
        }
        SimpleEvent& waiting = found->second;
        if (event.type != waiting.type) waiting.later.push_back(event);
        const bool comesAndGoes = isCreation(waiting) || waiting.type == "MODIFIED" || waiting.type == "RENAME";
        if (comesAndGoes && !waiting.later.empty() && waiting.later.back().type == "DELETE") _waiting.erase(found);
    }
    std::vector<SimpleEvent> take() {
        std::vector<SimpleEvent> batch;
        for (const auto& [inode, event] : _waiting) batch.push_back(event);
        _waiting.clear();
        return batch;
    }
    static void coalesce(std::vector<SimpleEvent>& batch) {
        std::stable_sort(batch.begin(), batch.end(), [](const SimpleEvent& a, const SimpleEvent& b) {
            return lowercase(a.path) < lowercase(b.path);
        });
        removeBelow(batch, "DELETE");
        std::sort(batch.begin(), batch.end(),
                  [](const SimpleEvent& a, const SimpleEvent& b) { return a.inode < b.inode; });
        removeBelow(batch, "CREATE_DIR");
        for (SimpleEvent& event : batch) {
            if (!isCreation(event) || event.later.empty()) continue;
            const SimpleEvent last = event.later.back();
            if (last.type == "MODIFIED")
                event = {"UPDATED", event.inode, last.path, "", {}};
            else if (last.type == "RENAME")
                event = {"UPDATED", event.inode, last.destination, "", {}};
        }
    }

  private:
    static void removeBelow(std::vector<SimpleEvent>& batch, const std::string& type) {
        for (std::size_t parent = 0; parent < batch.size(); ++parent) {
            if (batch[parent].type != type || !batch[parent].later.empty()) continue;
            const std::string path = batch[parent].path;
            for (std::size_t child = parent + 1; child < batch.size();) {
                if (batch[child].path.starts_with(path))
                    batch.erase(batch.begin() + static_cast<std::ptrdiff_t>(child));
                else
                    ++child;
            }
        }
    }

    std::map<std::int32_t, SimpleEvent> _waiting;
};

// Every inode has a path of its own, also without regard to case: of equal paths, the order of sorting is any.
class EventTwins {
  public:
    explicit EventTwins(unsigned seed, std::uint32_t inodes) : _random(seed) {
        std::vector<std::string> folded;
        while (_inodes.size() < inodes) {
            std::string path;
            for (int depth = 1 + upTo(3); depth > 0; --depth)
                path += std::string("/") + "aAbBc"[upTo(4)] + (upTo(2) ? "" : std::string(1, "aAbBc"[upTo(4)]));
            if (std::find(folded.begin(), folded.end(), lowercase(path)) != folded.end()) continue;
            folded.push_back(lowercase(path));
            _inodes.push_back({static_cast<std::int32_t>(_random()), path});
        }
    }

    void run(int steps) {
        for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
            if (upTo(60) == 0)
                take();
            else
                arrive();
        }
        take();
    }

  private:
    int upTo(int limit) { return std::uniform_int_distribution<int>(0, limit)(_random); }

    void arrive() {
        constexpr const char* kTypes[] = {"CREATE_FILE", "DELETE", "RENAME",  "MODIFIED",
                                          "CREATE_DIR",  "DELETE", "MODIFIED"};
        const auto& [inode, path] = _inodes[static_cast<std::size_t>(upTo(static_cast<int>(_inodes.size()) - 1))];
        SimpleEvent event{kTypes[upTo(6)], inode, path, "", {}};
        if (event.type == "RENAME") event.destination = path + "x";
        auto real = [&] {
            const auto number = static_cast<std::uint32_t>(inode);
            return event.type == "RENAME" ? newRename(number, event.path, event.destination)
                                          : newEvent(event.type.c_str(), number, event.path);
        };
        if (upTo(20) == 0) {  // does not pass
            auto foreign = real();
            foreign->setDevice(5);  // of a rename, the destination's: then it does pass
            if (foreign->shouldAddEvent()) return;
            TuvFSEvent::addEvent(foreign.leak(), _array.get(), nullptr);
            return;
        }
        TuvFSEvent::addEvent(real().leak(), _array.get(), nullptr);
        TuvFSEvent::addEvent(real().leak(), &_waiting, nullptr);
        _twin.arrive(event);
    }

    void take() {
        auto expected = _twin.take();
        auto taken = _waiting.takeAll();
        ASSERT_EQ(texts(*_array), texts(expected));
        ASSERT_EQ(texts(*taken), texts(expected));
        Twin::coalesce(expected);
        BatchResolver::coalesce(*taken);
        ASSERT_EQ(texts(*taken), texts(expected));
        BatchResolver::coalesce(*_array);
        ASSERT_EQ(texts(*_array), texts(expected));
        _array->removeAllObjects();
    }

    static std::vector<std::string> texts(const TuvObjectArray& batch) { return textsOf(batch); }
    static std::vector<std::string> texts(const std::vector<SimpleEvent>& batch) {
        std::vector<std::string> texts;
        for (const SimpleEvent& event : batch) texts.push_back(textOf(event));
        return texts;
    }

    std::mt19937 _random;
    std::vector<std::pair<std::int32_t, std::string>> _inodes;
    TuvRef<TuvObjectArray> _array = make<TuvObjectArray>();
    WaitingEvents _waiting;
    Twin _twin;
};

TEST(TuvFSEventTwinTest, FewInodes) {
    for (unsigned seed = 0; seed < 40 && !HasFailure(); ++seed) EventTwins(seed, 8).run(1500);
}

TEST(TuvFSEventTwinTest, ManyInodes) {
    for (unsigned seed = 100; seed < 120 && !HasFailure(); ++seed) EventTwins(seed, 80).run(4000);
}

}  // namespace
}  // namespace kavaro
