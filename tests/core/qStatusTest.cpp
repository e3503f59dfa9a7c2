// Every status code has a text of its own; any other value reads "unknown status".
#include "qimg/core/qStatus.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

TEST(qStatusTest, EveryCodeHasATextOfItsOwn) {
    const std::set<int> codes = {2, 1, 0, -1, -3, -5, -6, -8, -9, -10, -11, -100};
    std::set<std::string> texts;
    for (int status = -101; status <= 3; ++status) {
        const std::string text = status_text(status);
        EXPECT_EQ(text == "unknown status", codes.count(status) == 0) << status;
        EXPECT_TRUE(codes.count(status) == 0 || texts.insert(text).second) << status;
    }
}

}  // namespace
