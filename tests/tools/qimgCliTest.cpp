// The qimg program run as a user runs it: exit statuses, messages, and the pictures it writes
// read back and compared with what the library composes in-process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "png_io.h"

namespace {

namespace fs = std::filesystem;

const fs::path kSample = QIMG_SAMPLE_GIF;

struct CliRun {
    int status;
    std::string out;
    std::string err;
};

std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

class qimgCliTest : public testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() /
               ("qimg-cli-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    CliRun run(const std::string& arguments) {
        const fs::path out = dir_ / "stdout", err = dir_ / "stderr";
        const std::string command =
            std::string(QIMG_CLI) + " " + arguments + " >" + out.string() + " 2>" + err.string();
        const int raw = std::system(command.c_str());
        return CliRun{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
    }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }

    fs::path dir_;
};

// Every frame of a GIF as the composer shows it.
std::vector<std::vector<unsigned char>> composed_frames(const std::string& file) {
    qImageProxy proxy;
    EXPECT_EQ(proxy.read_gif(file.c_str(), nullptr), 0);
    std::vector<std::vector<unsigned char>> out;
    if (!proxy.animation()) return out;
    const qSize size = proxy.size();
    std::vector<unsigned char> pixels(static_cast<size_t>(size.width) * size.height * 4);
    qImageEdit canvas;
    canvas.Bind(pixels.data(), size, size.width * 4, PT_BGRA32);
    qFrameComposer composer;
    EXPECT_EQ(composer.begin(proxy.animation(), &canvas), 0);
    for (int i = 0; i < proxy.animation()->num_frames(); ++i) {
        EXPECT_EQ(composer.compose_to(i, nullptr), 0);
        out.push_back(pixels);
    }
    return out;
}

TEST_F(qimgCliTest, InfoDescribesEveryFrame) {
    const CliRun r = run("info " + kSample.string());
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("screen 96 x 64, 5 frames, plays forever"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("24x24+8+14"), std::string::npos);
    const CliRun piped = run("info - < " + kSample.string());  // through the push reader
    EXPECT_EQ(piped.out.substr(piped.out.find(':')), r.out.substr(r.out.find(':')));
    const CliRun json = run("info --json " + kSample.string());
    EXPECT_EQ(json.status, 0);
    EXPECT_NE(json.out.find("\"frame_count\": 5"), std::string::npos) << json.out;
    EXPECT_NE(json.out.find("\"disposal\": 3"), std::string::npos);
}

TEST_F(qimgCliTest, RenderWritesTheComposedFrameScaled) {
    const auto frames = composed_frames(kSample.string());
    const qSize size(96, 64);
    for (int frame : {0, 2, 4}) {
        SCOPED_TRACE(frame);
        const std::vector<unsigned char>& expected = frames[frame];
        const std::string out = path("frame.png");
        const CliRun r = run("render " + kSample.string() + " --frame " + std::to_string(frame) +
                             " --scale 2,3 -o " + out);
        ASSERT_EQ(r.status, 0) << r.err;
        PngPicture picture;
        std::string error;
        ASSERT_TRUE(read_png(out, picture, error)) << error;
        ASSERT_EQ(picture.width, size.width * 2);
        ASSERT_EQ(picture.height, size.height * 3);
        for (int y = 0; y < picture.height; ++y) {
            for (int x = 0; x < picture.width; ++x) {
                const unsigned char* got =
                    &picture.pixels[(static_cast<size_t>(y) * picture.width + x) * 4];
                const unsigned char* want =
                    &expected[(static_cast<size_t>(y / 3) * size.width + x / 2) * 4];
                ASSERT_TRUE(std::equal(got, got + 4, want)) << "pixel (" << x << ", " << y << ")";
            }
        }
    }
}

TEST_F(qimgCliTest, QuantizeKeepsColoursThatFitAndTransparency) {
    // Three colours and fully transparent pixels: a 4-colour palette must keep them exactly.
    const int w = 16, h = 8;
    std::vector<unsigned char> bgra(static_cast<size_t>(w) * h * 4);
    const unsigned char colours[4][4] = {
        {0,  0,   255, 255},
        {0,  200, 0,   255},
        {90, 60,  30,  255},
        {0,  0,   0,   0  }
    };
    for (int i = 0; i < w * h; ++i) std::copy(colours[i % 4], colours[i % 4] + 4, &bgra[i * 4]);
    const std::string in = path("in.png"), out = path("out.png");
    std::string error;
    ASSERT_TRUE(write_png_bgra(in, bgra.data(), w, h, w * 4, error)) << error;
    for (const char* options : {"", "--dither", "--dither --color-strength 0.5",
                                "--palette median-cut --dither", "--palette adaptive"}) {
        SCOPED_TRACE(options);
        const CliRun r = run("quantize " + in + " -o " + out + " --colors 4 " + options);
        ASSERT_EQ(r.status, 0) << r.err;
        PngPicture picture;
        ASSERT_TRUE(read_png(out, picture, error)) << error;
        ASSERT_EQ(picture.pixels.size(), bgra.size());
        for (int i = 0; i < w * h; ++i) {
            const bool transparent = bgra[i * 4 + 3] == 0;
            if (transparent) {
                EXPECT_EQ(picture.pixels[i * 4 + 3], 0) << "pixel " << i;
            } else {
                EXPECT_TRUE(std::equal(&bgra[i * 4], &bgra[i * 4] + 4, &picture.pixels[i * 4]))
                    << "pixel " << i;
            }
        }
    }
}

TEST_F(qimgCliTest, EncodeAndResaveWriteGifsThatShowTheFrames) {
    // The sample's composed frames as PNGs, encoded again: few colours, so they stay exact.
    std::string frames;
    const auto expected = composed_frames(kSample.string());
    for (int i = 0; i < 5; ++i) {
        const std::string png = path("f" + std::to_string(i) + ".png");
        std::string error;
        ASSERT_TRUE(write_png_bgra(png, expected[i].data(), 96, 64, 96 * 4, error));
        frames += png + " ";
    }
    const std::string anim = path("anim.gif"), again = path("again.gif");
    CliRun r = run("encode " + frames + "-o " + anim + " --delay 120 --loop 2");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(composed_frames(anim), expected);
    r = run("info " + anim);
    EXPECT_NE(r.out.find("5 frames, plays 2\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("120ms"), std::string::npos) << r.out;
    r = run("resave " + kSample.string() + " -o " + again + " --optimize");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(composed_frames(again), expected);

    // A failing run leaves the target as it was and no file of its own behind.
    const std::string before = slurp(anim);
    r = run("encode " + frames + path("missing.png") + " -o " + anim);
    EXPECT_EQ(r.status, 1);
    r = run("resave " + kSample.string() + " -o " + path("no-dir/x.gif"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("no-dir/x.gif"), std::string::npos) << r.err;
    EXPECT_EQ(slurp(anim), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()),
              9);  // 5 PNGs, 2 GIFs, stdout, stderr
}

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
    const Case cases[] = {
        {"info " + broken,                                            broken,              "cut short"     },
        {"info " + text,                                              text,                "not a GIF file"},
        {"info " + path("missing.gif"),                               path("missing.gif"), "cannot open"   },
        {"render " + text + " -o " + path("x.png"),                   text,                "not a GIF file"},
        {"quantize " + text + " -o " + path("x.png") + " --colors 8", text,                "PNG"           },
        {"info - < " + broken,                                        "-",                 "cut short"     },
        {"--max-pixels 255 info " + kSample.string(),                 kSample.string(),    "too large"     },
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const CliRun r = run(c.arguments);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(r.err.find(c.file), std::string::npos) << r.err;
        EXPECT_NE(r.err.find(c.words), std::string::npos) << r.err;
    }
}

TEST_F(qimgCliTest, WrongCommandLinesGiveStatusTwo) {
    const std::string sample = kSample.string();
    const std::vector<std::string> wrong = {
        "frobnicate",
        "info",
        "render " + sample,
        "render " + sample + " -o",
        "render " + sample + " -o x.png --frame -1",
        "render " + sample + " -o x.png --scale 0",
        "render " + sample + " -o x.png --scale nan",
        "sheet " + sample + " -o x.png --columns 0",
        "quantize in.png -o out.png --colors 1",
        "quantize in.png -o out.png --colors 8 --palette x",
        "info " + sample + " --bogus",
        "encode a.png -o out.png",
        "encode -o out.gif",
        "resave " + sample + " " + sample + " -o out.gif",
        "resave " + sample + " -o out.gif --loop -1",
        "--max-pixels 0 info " + sample,
        "info " + sample + " --max-memory",
    };
    for (const std::string& arguments : wrong) {
        SCOPED_TRACE(arguments);
        const CliRun r = run(arguments);
        EXPECT_EQ(r.status, 2) << r.err;
        EXPECT_NE(r.err.find("qimg: "), std::string::npos);
    }
    const CliRun help = run("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("usage: qimg"), std::string::npos);
    EXPECT_EQ(run("render " + sample + " --frame 5 -o " + path("x.png")).status, 1);
}

}  // namespace
