#include "../../fuzz/NodeReaders.h"

#include <filesystem>
#include <fstream>

#include "LogCapture.h"
#include "model/serialization_twin.h"

// The fuzzers' corpus, run without a fuzzer.
namespace kavaro {
namespace {

using namespace twin;

int replay(const char* folderName, void (*run)(ByteView)) {
    LogCapture log;
    int inputs = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(KAVARO_SOURCE_DIR "/fuzz/corpus/") + folderName)) {
        std::ifstream stream(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        run(ExactBytes(bytes).view());
        ++inputs;
    }
    return inputs;
}

TEST(SerializationCorpus, NodeStream) {
    EXPECT_GE(replay("node_stream", fuzz::readNodeStream), 10);
}

TEST(SerializationCorpus, NodeDatabase) {
    EXPECT_GE(replay("node_database", fuzz::readNodeDatabase), 5);
}

// Not from the corpus: random bytes, which are nearly always malformed, and whole forms with a few bytes changed.
TEST(SerializationCorpus, RandomChanges) {
    LogCapture log;
    for (unsigned seed = 1; seed <= 400; ++seed) {
        Random random(seed);
        std::string bytes;
        if (seed % 4 == 0) {
            for (auto left = random.below(200); left > 0; --left) bytes += static_cast<char>(random.below(6));
        } else {
            const Plain tree = random.tree(3);
            if (seed % 4 == 1) bytes = writeBatch({tree, tree}, 3);
            if (seed % 4 == 2) write(bytes, tree, 3);
            if (seed % 4 == 3) {
                Streams streams;
                writeDatabase(streams, tree, 0);
                bytes = static_cast<char>(streams.index.size() / 8) + streams.index + streams.nodes + streams.data;
            }
            for (auto left = random.below(4); left > 0; --left)
                bytes[random.below(bytes.size())] = static_cast<char>(random.below(256));
        }
        const ExactBytes exact(bytes);
        fuzz::readNodeStream(exact.view());
        fuzz::readNodeDatabase(exact.view());
    }
}

}  // namespace
}  // namespace kavaro
