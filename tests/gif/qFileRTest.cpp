#include <gtest/gtest.h>
#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "gif/GifTestKit.h"
#include "qimg/core/qMonitor.h"
#include "qimg/gif/qFileR.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qMemoryR.h"

namespace {

const unsigned char kBytes[] = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19};

std::string temp_file() {
    std::string path = testing::TempDir() + "qimg_file_r_test.bin";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(kBytes, 1, sizeof kBytes, f);
    std::fclose(f);
    return path;
}

// The same script of calls gives the same answers on a file and on memory.
void exercise(qIFileR& source) {
    unsigned char buffer[16] = {};
    EXPECT_EQ(source.read(buffer, 3), 3);
    EXPECT_EQ(buffer[2], 12);
    EXPECT_EQ(source.size(), 10);
    // size() leaves the position in place.
    EXPECT_EQ(source.seek(0, 1), 3);
    EXPECT_EQ(source.read(buffer, 1), 1);
    EXPECT_EQ(buffer[0], 13);
    // A read that crosses the end returns what was there; at the end, 0.
    EXPECT_EQ(source.seek(-2, 2), 8);
    EXPECT_EQ(source.read(buffer, 5), 2);
    EXPECT_EQ(buffer[1], 19);
    EXPECT_EQ(source.read(buffer, 5), 0);
    // Before the start fails and keeps the position; past the end is allowed.
    EXPECT_EQ(source.seek(-1, 0), -1);
    EXPECT_EQ(source.seek(0, 1), 10);
    EXPECT_EQ(source.seek(5, 2), 15);
    EXPECT_EQ(source.read(buffer, 1), 0);
    EXPECT_EQ(source.seek(1, 0), 1);
    EXPECT_EQ(source.read(buffer, 0), 0);
    EXPECT_EQ(source.read(nullptr, 4), 0);
    EXPECT_EQ(source.seek(0, 1), 1);
}

TEST(qFileRTest, FileAndMemoryAgree) {
    const std::string path = temp_file();
    qFileR file;
    ASSERT_TRUE(file.open(path.c_str()));
    {
        SCOPED_TRACE("file");
        exercise(file);
    }
    qMemoryR memory(kBytes, sizeof kBytes);
    {
        SCOPED_TRACE("memory");
        exercise(memory);
    }
    // Reopening closes the first handle; close twice is harmless.
    EXPECT_TRUE(file.open(path.c_str()));
    file.close();
    file.close();
    std::remove(path.c_str());
}

TEST(qFileRTest, ClosedAndMissing) {
    qFileR file;
    EXPECT_FALSE(file.open("/nonexistent/qimg/file.gif"));
    EXPECT_FALSE(file.open(nullptr));
    unsigned char byte;
    EXPECT_EQ(file.size(), 0);
    EXPECT_EQ(file.seek(0, 1), -1);
    EXPECT_EQ(file.read(&byte, 1), 0);

    qMemoryR empty;
    EXPECT_EQ(empty.size(), 0);
    EXPECT_EQ(empty.read(&byte, 1), 0);
    EXPECT_EQ(empty.seek(0, 3), -1);
    qMemoryR null_data(nullptr, 100);
    EXPECT_EQ(null_data.size(), 0);
}

// Reading from a pipe, whose size and position the stream cannot tell: the position is the
// bytes read, and progress reports it as its own total, never 0 nor negative.
TEST(qFileRTest, PipeProgressCountsTheBytesRead) {
    struct : qIMonitor {
        bool progress(int done, int total, int, int) override {
            EXPECT_TRUE(done > last && total == done) << done << " of " << total;
            return (last = done) > 0;
        }
        int last = 0;
    } monitor;
    gif_test::GifBuilder builder;
    builder.header().screen(4, 4, 1).color_table(4);
    for (int frame = 0; frame < 3; ++frame)
        builder.descriptor(0, 0, 4, 4).pixels(2, gif_test::Bytes(16, frame), 5);
    const gif_test::Bytes gif = builder.trailer().bytes();
    const std::string path = testing::TempDir() + "qimg_file_r_pipe";
    std::remove(path.c_str());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::thread writer([&] {
        std::FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(gif.data(), 1, gif.size(), f);
        std::fclose(f);
    });
    qFileR pipe;
    ASSERT_TRUE(pipe.open(path.c_str()));
    qGifAnimation animation;
    EXPECT_EQ(animation.read(&pipe, &monitor), 0);
    writer.join();
    EXPECT_EQ(pipe.seek(0, 1), static_cast<int>(gif.size()));
    std::remove(path.c_str());
}

}  // namespace
