// A file read through qFileR and the same bytes through qMemoryR answer alike: the size (asked at
// the start, it leaves the position there), seeks from each origin and reads.
#include "qimg/gif/qFileR.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "common/TestKit.h"
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

}  // namespace
