#include <gtest/gtest.h>

#include <vector>

#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qMemoryR.h"

namespace {

struct ControlCase {
    const char* name;
    std::vector<unsigned char> bytes;  // the bytes after the 0xF9 label
    int status;
    int disposal, delay, transparent;  // the record afterwards (it starts as 3, 77, 9)
};

TEST(qGifControlTest, ReadTable) {
    const ControlCase cases[] = {
        {     "disposal 2, transparent 5",   {4, 0x09, 0x0A, 0x00, 5, 0},  0, 2,    10,   5},
        {  "flag clear ignores the index",   {4, 0x08, 0x0A, 0x00, 5, 0},  0, 2,    10,  -1},
        { "delay little-endian, all bits", {4, 0xFF, 0xFF, 0xFF, 255, 0},  0, 7, 65535, 255},
        {        "user input bit ignored",         {4, 0x02, 1, 0, 0, 0},  0, 0,     1,  -1},
        { "block size 5 keeps the record",   {5, 0x09, 0x0A, 0x00, 5, 0}, -8, 3,    77,   9},
        {"bad terminator sets the fields",   {4, 0x05, 0x01, 0x02, 6, 1}, -8, 1,   513,   6},
        {                    "five bytes",      {4, 0x09, 0x0A, 0x00, 5}, -3, 3,    77,   9},
    };
    for (const ControlCase& c : cases) {
        SCOPED_TRACE(c.name);
        qGifControl control;
        control.disposal = 3;
        control.delay = 77;
        control.transparent = 9;
        qMemoryR source(c.bytes.data(), c.bytes.size());
        EXPECT_EQ(control.read(&source), c.status);
        EXPECT_EQ(control.disposal, c.disposal);
        EXPECT_EQ(control.delay, c.delay);
        EXPECT_EQ(control.transparent, c.transparent);
    }
    qGifControl control;
    EXPECT_EQ(control.read(nullptr), -5);
    control.delay = 5;
    control.reset();
    EXPECT_EQ(control.delay, 0);
    EXPECT_EQ(control.transparent, -1);
}

}  // namespace
