// A file read through qFileR and the same bytes through qMemoryR answer alike: the size (asked at
// the start, it leaves the position there), seeks from each origin and reads.
#include "qimg/gif/qFileR.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "common/TestKit.h"
#include "gif/GifTestKit.h"
#include "qimg/core/qMonitor.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qMemoryR.h"

namespace {

TEST(qFileRTest, FileAndMemoryAnswerAlike) {
    qtest::Bytes bytes(300);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 7 + 1);
    const auto path = std::filesystem::temp_directory_path() / "qimg-file-reader-test.bin";
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), 300);
    qFileR file;
    EXPECT_FALSE(file.open(nullptr));
    ASSERT_TRUE(file.open(path.c_str()));
    qMemoryR memory(bytes.data(), bytes.size());
    for (qIFileR* source : {static_cast<qIFileR*>(&file), static_cast<qIFileR*>(&memory)}) {
        unsigned char b[2] = {};
        EXPECT_EQ(source->size(), 300);
        EXPECT_TRUE(source->read(b, 2) == 2 && b[0] == bytes[0] && b[1] == bytes[1]);
        EXPECT_EQ(source->seek(3, SEEK_CUR), 5);
        EXPECT_EQ(source->seek(-2, SEEK_END), 298);
        EXPECT_TRUE(source->read(b, 2) == 2 && b[0] == bytes[298] && b[1] == bytes[299]);
        EXPECT_EQ(source->seek(7, SEEK_SET), 7);
        EXPECT_EQ(source->seek(0, 9), -1);  // no such origin
        EXPECT_TRUE(source->read(b, 1) == 1 && b[0] == bytes[7]);
    }
    file.close();
    std::filesystem::remove(path);
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
    builder.raw({0x21, 0x01, 2, 'x', 'y', 1, 'z', 0});  // plain text: skipped, not seekable
    for (int frame = 0; frame < 3; ++frame)
        builder.descriptor(0, 0, 4, 4).pixels(2, gif_test::Bytes(16, frame));
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
