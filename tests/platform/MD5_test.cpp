#include "platform/MD5.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "TempFolder.h"
#include "platform/ChildProcess.h"
#include "platform/MD5Lanes.h"
#include "platform/RandomBytes.h"

namespace kavaro {
namespace {

// Lengths on both sides of every border that the algorithm has, and some by chance.
std::vector<std::size_t> lengths() {
    std::vector<std::size_t> all = {0, 1, 2, 3};
    for (std::size_t border : {55u, 56u, 64u, 119u, 120u, 128u, 183u, 192u, 4096u, 65536u})
        for (std::size_t length = border - 2; length <= border + 2; ++length) all.push_back(length);
    std::mt19937 random(7);
    for (int i = 0; i < 40; ++i) all.push_back(random() % 3000);
    return all;
}

// Runs one kernel over texts of which there are no more than it has lanes, each with its own length.
std::vector<std::string> byKernel(const MD5Kernel& kernel, const std::vector<std::string>& texts) {
    struct Stream {
        std::vector<std::uint8_t> blocks;
        MD5State state;
        std::size_t done = 0;
        std::size_t left() const { return blocks.size() / kMD5BlockBytes - done; }
    };
    std::vector<Stream> streams(texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::size_t whole = texts[i].size() / kMD5BlockBytes * kMD5BlockBytes;
        streams[i].blocks.assign(texts[i].begin(), texts[i].begin() + static_cast<std::ptrdiff_t>(whole));
        const MD5Tail tail(bytesOf(std::string_view(texts[i]).substr(whole)), texts[i].size());
        streams[i].blocks.insert(streams[i].blocks.end(), tail.bytes, tail.bytes + tail.blocks * kMD5BlockBytes);
    }
    for (;;) {
        std::vector<Stream*> active;
        for (Stream& stream : streams)
            if (stream.left() > 0) active.push_back(&stream);
        if (active.empty()) break;
        std::size_t blocks = active[0]->left();
        for (const Stream* stream : active) blocks = std::min(blocks, stream->left());
        std::vector<MD5State> unused(static_cast<std::size_t>(kernel.lanes));
        std::vector<MD5State*> states;
        std::vector<const std::uint8_t*> data;
        for (std::size_t lane = 0; lane < unused.size(); ++lane) {
            Stream& stream = *active[lane < active.size() ? lane : 0];
            states.push_back(lane < active.size() ? &stream.state : &unused[lane]);
            data.push_back(stream.blocks.data() + stream.done * kMD5BlockBytes);
        }
        kernel.run(states.data(), data.data(), blocks);
        for (Stream* stream : active) stream->done += blocks;
    }
    std::vector<std::string> digests;
    for (const Stream& stream : streams) digests.push_back(md5Text(stream.state.digest()));
    return digests;
}

TEST(MD5, HasTheDigestsThatEverybodyHas) {
    EXPECT_EQ(md5Text(md5Of({})), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5Text(md5Of(bytesOf("a"))), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(md5Text(md5Of(bytesOf("message digest"))), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(
        md5Text(md5Of(bytesOf("12345678901234567890123456789012345678901234567890123456789012345678901234567890"))),
        "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(MD5, OwnCodeAgreesWithTheLibraryHoweverTheBytesAreCut) {
    std::mt19937 random(3);
    for (std::size_t length : lengths()) {
        const std::string text = randomBytes(length, static_cast<unsigned>(length));
        MD5Stream own(MD5Stream::Code::own);
        MD5Stream library(MD5Stream::Code::library);
        for (std::size_t at = 0; at < length;) {
            const std::size_t part = std::min<std::size_t>(length - at, random() % 150);
            own.add(bytesOf(std::string_view(text).substr(at, part)));
            library.add(bytesOf(std::string_view(text).substr(at, part)));
            at += part;
        }
        EXPECT_EQ(md5Text(own.finish()), md5Text(library.finish())) << length;
    }
}

// The length counts bits, in 64 of them: 5 GiB and 3 bytes are 0xA00000018.
TEST(MD5, TheTailHoldsALengthBeyond32Bits) {
    const MD5Tail tail(bytesOf("abc"), (5ull << 30) + 3);
    ASSERT_EQ(tail.blocks, 1u);
    std::string wanted = "abc\x80";
    wanted.resize(56);
    wanted += std::string("\x18\0\0\0\x0a\0\0\0", 8);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(tail.bytes), kMD5BlockBytes), wanted);
}

TEST(MD5, EveryKernelOfTheProcessorAgreesWithTheLibrary) {
    const std::vector<MD5Kernel> kernels = md5KernelsOfProcessor();
    ASSERT_GE(kernels.size(), 3u);
    const std::vector<std::size_t> all = lengths();
    for (const MD5Kernel& kernel : kernels) {
        SCOPED_TRACE(kernel.name);
        ASSERT_LE(kernel.lanes, kMD5MostLanes);
        const auto lanes = static_cast<std::size_t>(kernel.lanes);
        // All lengths, as many at once as there are lanes, and then fewer.
        for (std::size_t group : {lanes, lanes > 1 ? lanes - 1 : 1, std::size_t{1}}) {
            for (std::size_t from = 0; from < all.size(); from += group) {
                std::vector<std::string> texts, wanted;
                for (std::size_t i = from; i < std::min(from + group, all.size()); ++i) {
                    texts.push_back(randomBytes(all[i], static_cast<unsigned>(i)));
                    wanted.push_back(md5Text(md5Of(bytesOf(texts.back()))));
                }
                EXPECT_EQ(byKernel(kernel, texts), wanted);
            }
        }
    }
}

TEST(MD5, AgreesWithTheProgram) {
    TempFolder folder;
    for (std::size_t length : lengths()) {
        const std::string text = randomBytes(length, static_cast<unsigned>(length) + 1);
        const auto output = runAndRead("/usr/bin/md5sum", {folder.write("file", text)});
        ASSERT_TRUE(output);
        EXPECT_EQ(md5Text(md5Of(bytesOf(text))), output->substr(0, 32)) << length;
    }
}

TEST(MD5, TheChoiceForEachNumberOfStreamsIsTheNarrowestThatHoldsThem) {
    const auto run = [](MD5State* const*, const std::uint8_t* const*, std::size_t) {};
    const std::vector<MD5Kernel> chosen = chooseMD5Kernels({{"1", 1, run}, {"8 new", 8, run}, {"4", 4, run}});
    ASSERT_EQ(chosen.size(), 9u);
    EXPECT_STREQ(chosen[1].name, "1");
    for (int i : {2, 3, 4}) EXPECT_STREQ(chosen[static_cast<std::size_t>(i)].name, "4");
    for (int i : {5, 6, 7, 8}) EXPECT_STREQ(chosen[static_cast<std::size_t>(i)].name, "8 new");
    EXPECT_STREQ(chooseMD5Kernels({{"old", 4, run}, {"new", 4, run}})[4].name, "new");
    ASSERT_GE(fastestMD5Kernels().size(), 9u);
    EXPECT_EQ(fastestMD5Kernels()[1].lanes, 1);
}

}  // namespace
}  // namespace kavaro
