// The push reader against the pull reader on the same bytes: every corpus file in pieces of
// several sizes, and every prefix of three animations ended there. Frames reported complete
// must never change afterwards.
#include "qimg/gif/qGifPushReader.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "common/TestKit.h"
#include "gif/GifTestKit.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qStatus.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qMemoryR.h"

namespace {

using gif_test::Bytes;
using gif_test::digest;
using gif_test::frame_digest;

const qGifReadOptions kBrowser{.browser_rules = true};

// Bytes in a qMemoryR are read in place; a derived class is read through its calls.
struct CalledMemory : qMemoryR {
    using qMemoryR::qMemoryR;
};

std::string pull(const Bytes& bytes, size_t length, qIMonitor* monitor = nullptr) {
    qGifAnimation animation;
    qMemoryR source(bytes.data(), length);
    const int status = animation.read(&source, monitor, kBrowser);
    if (monitor == nullptr) {  // both ways give the same and leave the source at one position
        qGifAnimation called;
        CalledMemory calls(bytes.data(), length);
        EXPECT_EQ(digest(called.read(&calls, nullptr, kBrowser), called),
                  digest(status, animation));
        EXPECT_EQ(calls.seek(0, SEEK_CUR), source.seek(0, SEEK_CUR));
    }
    return digest(status, animation);
}

// Pushes bytes[0, length) in pieces of `piece` bytes (0: random sizes up to 300), then ends.
// Checks after each piece that the complete frames only grow and keeps the digest of each frame
// when it first counts as complete, to compare with the final frame.
std::string push(const Bytes& bytes, size_t length, size_t piece, qIMonitor* monitor = nullptr) {
    qGifPushReader reader;
    EXPECT_EQ(reader.push(bytes.data(), 1), ST_BAD_ARGUMENT);  // before begin()
    EXPECT_EQ(reader.begin(kBrowser, monitor), 0);
    // Hostile sizes are refused and take nothing: the stream below still reads whole.
    EXPECT_EQ(reader.push(nullptr, 5), ST_BAD_ARGUMENT);
    EXPECT_EQ(reader.push(bytes.data(), -1), ST_BAD_ARGUMENT);
    EXPECT_EQ(reader.push(nullptr, 0), ST_OK);
    std::mt19937 random(static_cast<unsigned>(length));
    std::vector<std::string> first_seen;
    for (size_t at = 0; at < length;) {
        const size_t n = std::min(length - at, piece ? piece : random() % 300 + 1);
        reader.push(bytes.data() + at, static_cast<int>(n));
        at += n;
        const int complete = reader.complete_frames();
        EXPECT_GE(complete, static_cast<int>(first_seen.size())) << "at byte " << at;
        for (int f = static_cast<int>(first_seen.size()); f < complete; ++f)
            first_seen.push_back(frame_digest(*reader.animation()->frame(f)));
    }
    EXPECT_EQ(reader.finished(), length == bytes.size());  // every file used here is whole
    const int status = reader.end();
    for (size_t f = 0; f < first_seen.size(); ++f)
        EXPECT_EQ(frame_digest(*reader.animation()->frame(static_cast<int>(f))), first_seen[f]);
    return digest(status, *reader.animation());
}

TEST(qGifPushReaderTest, EveryCorpusFileInPiecesReadsAsPulled) {
    for (const auto& path : qtest::corpus_files()) {
        SCOPED_TRACE(path.filename().string());
        const Bytes bytes = qtest::read_file(path);
        const std::string pulled = pull(bytes, bytes.size());
        for (const size_t piece : {bytes.size(), size_t{1}, size_t{7}, size_t{4096}, size_t{0}})
            EXPECT_EQ(push(bytes, bytes.size(), piece), pulled) << "pieces of " << piece;
    }
}

// Answers false at its third call; keeps the positions heard and whether the total was unknown
// (equal to the position) every time.
struct StopAtThird : qIMonitor {
    bool progress(int done, int total, int, int) override {
        positions.push_back(done);
        unknown_total = unknown_total && total == done;
        return positions.size() != 3;
    }
    std::vector<int> positions;
    bool unknown_total = true;
};

TEST(qGifPushReaderTest, EveryPrefixEndsAsThePullReaderOnThatPrefix) {
    for (const char* name :
         {"gdk-pixbuf-test-animation.gif", "gs-anim-colors16-O3.gif", "im-anim-dispose.gif"}) {
        SCOPED_TRACE(name);
        const Bytes bytes = qtest::read_file(std::string(QIMG_GIF_CORPUS) + "/" + name);
        for (size_t length = 0; length <= bytes.size(); ++length)
            ASSERT_EQ(push(bytes, length, 7), pull(bytes, length)) << "prefix of " << length;
        // Progress and cancel as the pull reader: the same positions, of a total unknown.
        StopAtThird pulling, pushing;
        EXPECT_EQ(push(bytes, bytes.size(), 100, &pushing), pull(bytes, bytes.size(), &pulling));
        // The facade holds what a push reader read as what it reads itself from the same bytes.
        qGifPushReader reader;
        reader.begin(kBrowser, nullptr);
        reader.push(bytes.data(), static_cast<int>(bytes.size() / 2));
        qImageProxy proxy, pulled;
        qMemoryR half(bytes.data(), bytes.size() / 2);
        EXPECT_EQ(proxy.read_gif(&reader), pulled.read_gif(&half, nullptr, kBrowser));
        EXPECT_EQ(proxy.num_frames(), pulled.num_frames());
        EXPECT_EQ(reader.animation(), nullptr);
        EXPECT_EQ(pushing.positions, pulling.positions);
        EXPECT_EQ(pushing.positions.size(), 3u);
        EXPECT_TRUE(pushing.unknown_total);
    }
}

}  // namespace
