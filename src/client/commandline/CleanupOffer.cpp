#include "client/commandline/CleanupOffer.h"

#include <unordered_set>

#include "format/TuvNodeFormatter.h"

namespace kavaro {

namespace {

// Folders of which none is counted within another one.
class OutermostFolders {
  public:
    void add(const TuvNode* folder) { _folders.insert(folder); }
    bool isOutermost(const TuvNode& folder) const {
        for (const TuvNode* above = folder.parent(); above; above = above->parent())
            if (_folders.contains(above)) return false;
        return true;
    }

  private:
    std::unordered_set<const TuvNode*> _folders;
};

OfferedLanguage offeredLanguage(const TuvObjectArray& group) {
    OfferedLanguage language;
    const TuvNode* first = group.nodeAtIndex(0);
    language.name = TuvNodeFormatter::languageName(first).value_or(std::string());
    if (const LanguageFlagRef flag = TuvNodeFormatter::languageIcon(first)) language.country = flag->country();
    OutermostFolders outermost;
    for (int i = 0; i < group.count(); ++i) {
        const TuvDirNode* folder = group.folderAtIndex(i);
        language.folders.push_back({folder, TreeTotals(*folder, 0).ofRoot()});
        outermost.add(folder);
    }
    for (const OfferedEntry& folder : language.folders)
        if (outermost.isOutermost(*folder.node)) language.totals += folder.totals;
    return language;
}

}  // namespace

LanguageOffer offeredLanguages(const TuvDirNode& root) {
    const TuvRef<TuvObjectArray> groups = root.languages();
    groups->coalesceLanguages();
    LanguageOffer offer;
    OutermostFolders outermost;
    for (TuvObject* group : *groups) {
        offer.languages.push_back(offeredLanguage(*static_cast<TuvObjectArray*>(group)));
        for (const OfferedEntry& folder : offer.languages.back().folders) outermost.add(folder.node);
    }
    for (const OfferedLanguage& language : offer.languages) {
        offer.folders += language.folders.size();
        for (const OfferedEntry& folder : language.folders)
            if (outermost.isOutermost(*folder.node)) offer.totals += folder.totals;
    }
    return offer;
}

NibOffer offeredNibs(const TuvDirNode& root) {
    const TuvRef<TuvObjectArray> files = root.nibFiles();
    NibOffer offer;
    for (int i = 0; i < files->count(); ++i) {
        const TuvNode* file = files->nodeAtIndex(i);
        offer.files.push_back({file, TreeTotals::ofFile(*file)});
        offer.totals += offer.files.back().totals;
    }
    return offer;
}

}  // namespace kavaro
