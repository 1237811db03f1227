#include "FakeCatalog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kavaro {
namespace {

using testing::ElementsAre;

// Calls until the listing ends; names of a call that failed stand behind "error:".
std::vector<std::string> listed(Catalog& catalog, const std::string& path, std::vector<int>* counts = nullptr) {
    FileReference reference;
    int error = 0;
    if (!catalog.reference(path, &reference, &error)) return {"no reference"};
    auto iterator = catalog.openIterator(std::move(reference), &error);
    if (!iterator) return {"no iterator"};
    std::vector<std::string> names;
    for (;;) {
        CatalogEntry entries[CatalogIterator::kEntriesPerCall];
        int count = 0;
        const CatalogStatus status = iterator->nextEntries(entries, &count);
        if (counts) counts->push_back(count);
        if (status == CatalogStatus::error) names.push_back("error:");
        for (int i = 0; i < count; ++i) names.emplace_back(entries[i].name);
        if (status != CatalogStatus::ok) return names;
    }
}

TEST(FakeCatalog, deliversWhatWasAdded) {
    FakeCatalog catalog;
    catalog.addFolder("/r", 2);
    catalog.addFile("/r/f", 3, 5, 4096, 0);
    catalog.addFolder("/r/d", 4);
    catalog.addExcludedFolder("/r/proc", 5, kReasonPseudoFileSystem);

    FileReference reference;
    int error = 0;
    ASSERT_TRUE(catalog.reference("/r", &reference, &error));
    EXPECT_TRUE(reference.isDirectory);
    auto iterator = catalog.openIterator(std::move(reference), &error);
    ASSERT_TRUE(iterator);
    EXPECT_EQ(catalog.openIterators(), 1);
    CatalogEntry entries[CatalogIterator::kEntriesPerCall];
    int count = 0;
    EXPECT_EQ(iterator->nextEntries(entries, &count), CatalogStatus::noMoreItems);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(entries[0].name, "f");
    EXPECT_EQ(entries[0].nodeID, 3u);
    EXPECT_FALSE(entries[0].isDirectory);
    EXPECT_EQ(entries[0].logicalSize, 5u);
    EXPECT_EQ(entries[0].physicalSize, 4096u);
    EXPECT_EQ(entries[0].contentModDate.lowSeconds, 2082844800u);
    EXPECT_TRUE(entries[1].isDirectory);
    EXPECT_FALSE(entries[1].isExcluded);
    EXPECT_TRUE(entries[2].isExcluded);
    EXPECT_STREQ(entries[2].reason, kReasonPseudoFileSystem);
    iterator.reset();
    EXPECT_EQ(catalog.openIterators(), 0);
    EXPECT_THAT(catalog.listedPaths(), ElementsAre("/r"));
}

TEST(FakeCatalog, endsListingsAsTold) {
    FakeCatalog catalog;
    catalog.addFolder("/r", 2);
    for (int i = 0; i < 32; ++i) catalog.addFile("/r/f" + std::to_string(i), 10 + static_cast<unsigned>(i), 1, 1);
    std::vector<int> counts;
    EXPECT_EQ(listed(catalog, "/r", &counts).size(), 32u);
    EXPECT_THAT(counts, ElementsAre(16, 16));

    counts.clear();
    catalog.folder("/r").lastEntriesWithNoMoreItems = false;
    EXPECT_EQ(listed(catalog, "/r", &counts).size(), 32u);
    EXPECT_THAT(counts, ElementsAre(16, 16, 0));

    catalog.folder("/r").entriesPerCall = 2;
    catalog.folder("/r").failAfter = 3;
    catalog.folder("/r").entriesWithError = 1;
    counts.clear();
    EXPECT_THAT(listed(catalog, "/r", &counts), ElementsAre("f0", "f1", "f2", "error:", "f3"));
    EXPECT_THAT(counts, ElementsAre(2, 1, 1));
}

TEST(FakeCatalog, failsAsTold) {
    FakeCatalog catalog;
    catalog.addFolder("/r", 2);
    catalog.addFolder("/r/locked", 3).openError = EACCES;
    catalog.addFolder("/r/broken", 4).iteratorError = EIO;
    catalog.addExcludedFolder("/r/proc", 5, kReasonPseudoFileSystem);
    catalog.addFile("/r/file", 6, 0, 0);
    catalog.addFolder("/r/gone", 7);
    catalog.vanish("/r/gone");
    catalog.addFolder("/r/removed", 8);
    catalog.remove("/r/removed");

    EXPECT_THAT(listed(catalog, "/r"), ElementsAre("locked", "broken", "proc", "file", "gone"));
    EXPECT_THAT(listed(catalog, "/r/locked"), ElementsAre("no iterator"));
    EXPECT_THAT(listed(catalog, "/r/broken"), ElementsAre("no iterator"));
    EXPECT_THAT(listed(catalog, "/r/proc"), ElementsAre());
    EXPECT_THAT(listed(catalog, "/r/file"), ElementsAre("no iterator"));
    EXPECT_THAT(listed(catalog, "/r/gone"), ElementsAre("no reference"));

    CatalogStat stat;
    int error = 0;
    EXPECT_FALSE(catalog.stat("/r/gone", &stat, &error));
    EXPECT_EQ(error, ENOENT);
    EXPECT_TRUE(catalog.stat("/r/file", &stat, &error));
    EXPECT_FALSE(stat.isDirectory);
    EXPECT_EQ(stat.nodeID, 6u);
}

}  // namespace
}  // namespace kavaro
