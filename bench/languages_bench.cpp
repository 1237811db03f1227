// Language folders of a tree of 1,000,000 nodes with 20,000 of them, found and put into groups, beside sorting the
// names of the same folders, and those of all nodes, with std::sort.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "model/TuvDirNode.h"
#include "platform/Text.h"
#include "support/TuvLog.h"

namespace kavaro {
namespace {

constexpr int kNodes = 1000000;
constexpr int kLanguageFolders = 20000;
constexpr int kPerApplication = 40;
constexpr const char* kNames[kPerApplication] = {
    "en",    "English", "fr",    "French", "de",    "German",  "es", "Spanish", "it", "Italian",
    "ja",    "ko",      "nl",    "Dutch",  "da",    "nb",      "no", "sv",      "fi", "pt",
    "pt_BR", "pt_PT",   "zh_TW", "zh_CN",  "en_GB", "zh-Hans", "ru", "pl",      "cs", "hu",
    "tr",    "el",      "ca",    "hr",     "ro",    "sk",      "uk", "th",      "vi", "Japanese"};

// Applications of 40 language folders with some files each, and other files for the rest.
class Tree {
  public:
    static const Tree& shared() {
        static const Tree tree;
        return tree;
    }
    const TuvDirNode& root() const { return *_root; }
    const std::vector<const TuvNode*>& languageFolders() const { return _languageFolders; }

  private:
    Tree() {
        _root->setFileName("/bench");
        const int applications = kLanguageFolders / kPerApplication;
        const int filesEach = (kNodes - kLanguageFolders) / (applications * (kPerApplication + 1));
        for (int i = 0; i < applications; ++i) {
            TuvDirNode* application = addFolder(*_root, "Application " + std::to_string(_random()) + ".app");
            TuvDirNode* resources = addFolder(*application, "Resources");
            addFiles(*resources, filesEach);
            for (const char* name : kNames) {
                TuvDirNode* folder = addFolder(*resources, std::string(name) + ".lproj");
                _languageFolders.push_back(folder);
                addFiles(*folder, filesEach);
            }
        }
        addFiles(*_root, kNodes - _root->recursiveFileCount() - _root->recursiveFolderCount());
    }

    TuvDirNode* addFolder(TuvDirNode& parent, const std::string& name) {
        auto folder = make<TuvDirNode>();
        folder->setFileName(name);
        folder->setParent(&parent);
        TuvDirNode* made = folder.get();
        parent.folders()->adoptObject(folder.leak());
        return made;
    }
    void addFiles(TuvDirNode& folder, int count) {
        for (int i = 0; i < count; ++i) {
            auto file = make<TuvNode>();
            file->setFileName("Name " + std::to_string(_random()) + ".strings");
            file->setParent(&folder);
            folder.files()->adoptObject(file.leak());
        }
    }

    std::mt19937 _random{1};
    TuvRef<TuvDirNode> _root = make<TuvDirNode>();
    std::vector<const TuvNode*> _languageFolders;
};

void languagesAndCoalesce(benchmark::State& state) {
    const TuvDirNode& root = Tree::shared().root();
    int groups = 0;
    for (auto _ : state) {
        auto languages = root.languages();
        languages->coalesceLanguages();
        groups = languages->count();
    }
    state.counters["nodes"] = root.recursiveFileCount() + root.recursiveFolderCount();
    state.counters["groups"] = groups;
}
BENCHMARK(languagesAndCoalesce)->Unit(benchmark::kMillisecond);

void nibFiles(benchmark::State& state) {
    const TuvDirNode& root = Tree::shared().root();
    for (auto _ : state) benchmark::DoNotOptimize(root.nibFiles()->count());
}
BENCHMARK(nibFiles)->Unit(benchmark::kMillisecond);

void sortNames(benchmark::State& state, const std::vector<const TuvNode*>& nodes) {
    for (auto _ : state) {
        std::vector<const TuvNode*> copy = nodes;
        std::sort(copy.begin(), copy.end(), [](const TuvNode* a, const TuvNode* b) {
            return caseInsensitiveCompare(a->fileName(), b->fileName()) < 0;
        });
        benchmark::DoNotOptimize(copy.data());
    }
}
void sortLanguageFolders(benchmark::State& state) {
    sortNames(state, Tree::shared().languageFolders());
}
BENCHMARK(sortLanguageFolders)->Unit(benchmark::kMillisecond);

void sortAllNodes(benchmark::State& state) {
    const auto all = Tree::shared().root().recursiveChildren();
    std::vector<const TuvNode*> nodes;
    for (const TuvObject* object : *all) nodes.push_back(static_cast<const TuvNode*>(object));
    sortNames(state, nodes);
}
BENCHMARK(sortAllNodes)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kavaro

int main(int argc, char** argv) {
    kavaro::TuvLog::setDefaultLevel(kavaro::LogLevel::off);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
