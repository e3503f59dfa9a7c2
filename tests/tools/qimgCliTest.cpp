// The qimg program run as a user runs it: a file it cannot use gives status 1 and one line that
// names the file and the reason.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

namespace fs = std::filesystem;

struct CliRun {
    int status;
    std::string err;
};

// A directory of its own for each test; the program runs as a shell runs it.
class qimgCliTest : public testing::Test {
protected:
    void SetUp() override {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        dir_ = fs::temp_directory_path() / (std::string("qimg-cli-") + test->name());
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    CliRun run(const std::string& arguments) {
        const std::string err = path("stderr");
        const int raw = std::system((QIMG_CLI " " + arguments + " >/dev/null 2>" + err).c_str());
        std::ifstream in(err);
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1,
                std::string(std::istreambuf_iterator<char>(in), {})};
    }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }

    fs::path dir_;
};

TEST_F(qimgCliTest, BadFilesGiveOneClearLineAndStatusOne) {
    const std::string broken = path("broken.gif"), text = path("text.gif");
    // A valid header and screen with a 2-entry global table, cut off inside the table.
    const char truncated[] = "GIF89a\x10\x00\x10\x00\x80\x00\x00\x01\x02";
    std::ofstream(broken, std::ios::binary).write(truncated, sizeof truncated - 1);
    std::ofstream(text) << "this is not a picture";
    struct Case {
        std::string arguments;
        std::string file;
        const char* words;
    };
    const std::string missing = path("missing.gif"), png = " -o " + path("x.png");
    // clang-format off
    const Case cases[] = {
        {"info " + broken, broken, "cut short"},
        {"info " + text, text, "not a GIF file"},
        {"info " + missing, missing, "cannot open"},
        {"render " + text + png, text, "not a GIF file"},
        {"quantize " + text + png + " --colors 8", text, "PNG"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const CliRun r = run(c.arguments);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(r.err.find(c.file), std::string::npos) << r.err;
        EXPECT_NE(r.err.find(c.words), std::string::npos) << r.err;
    }
}

}  // namespace
