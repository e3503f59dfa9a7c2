// The qimg program run as a user runs it: exit statuses, messages, and the pictures it writes
// read back and compared with what the library composes in-process.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

    // `shell` runs before the program in the same shell (a ulimit).
    CliRun run(const std::string& arguments, const std::string& shell = "") {
        const fs::path out = dir_ / "stdout", err = dir_ / "stderr";
        const std::string command = shell + std::string(QIMG_CLI) + " " + arguments + " >" +
                                    out.string() + " 2>" + err.string();
        const int raw = std::system(command.c_str());
        return CliRun{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
    }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }

    fs::path dir_;
};

void save_png(const std::string& path, const std::vector<unsigned char>& bgra, int w, int h) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_EQ(write_png_bgra(file, bgra.data(), w, h, w * 4, nullptr), 0);
    ASSERT_EQ(std::fclose(file), 0);
}

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
    EXPECT_NE(r.out.find("GIF89a, screen 96 x 64, 5 frames, plays forever"), std::string::npos)
        << r.out;
    EXPECT_NE(
        r.out.find("    1  24x24+8+14              400ms        2           3 4 local      yes"),
        std::string::npos);
    EXPECT_NE(r.out.find("16 entries, background index 0\n  comment: made by qimg's sample"),
              std::string::npos);
    const CliRun piped = run("info - < " + kSample.string());  // through the push reader
    EXPECT_EQ(piped.out.substr(piped.out.find(':')), r.out.substr(r.out.find(':')));
    const CliRun json = run("info --json " + kSample.string());
    EXPECT_EQ(json.status, 0);
    EXPECT_NE(json.out.find("\"frame_count\": 5"), std::string::npos) << json.out;
    EXPECT_NE(json.out.find("\"version\": \"89a\""), std::string::npos) << json.out;
    EXPECT_NE(json.out.find("\"delay_ms\": 600, \"disposal\": 1, \"transparent\": -1, "
                            "\"colors\": 16, \"local_colors\": false, \"interlaced\": false}"),
              std::string::npos);
    EXPECT_NE(json.out.find("\"comments\": [\"made by qimg's sample generator\"]"),
              std::string::npos);
}

TEST_F(qimgCliTest, RenderWritesTheComposedFramesScaled) {
    const auto frames = composed_frames(kSample.string());
    const qSize size(96, 64);
    const CliRun all =
        run("render " + kSample.string() + " --all --scale 2,3 -o " + path("f%%-%02d.png"));
    ASSERT_EQ(all.status, 0) << all.err;
    for (int frame = 0; frame < 5; ++frame) {
        SCOPED_TRACE(frame);
        const std::vector<unsigned char>& expected = frames[frame];
        const std::string out = path("f%-0" + std::to_string(frame) + ".png");
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
    // Through a link to a file not there yet: the link stays, the file behind it is written.
    fs::create_symlink("three.png", path("3.png"));
    const CliRun one =
        run("render " + kSample.string() + " --frame 3 --scale 2,3 -o " + path("3.png"));
    ASSERT_EQ(one.status, 0) << one.err;
    EXPECT_TRUE(fs::is_symlink(path("3.png")));
    EXPECT_EQ(slurp(path("three.png")), slurp(path("f%-03.png")));

    // The contact sheet: 5 frames in 2 columns, cells 6 pixels apart with a label row under each;
    // every opaque pixel of a frame is in its cell.
    ASSERT_EQ(run("sheet " + kSample.string() + " --columns 2 -o " + path("s.png")).status, 0);
    PngPicture sheet;
    std::string error;
    ASSERT_TRUE(read_png(path("s.png"), sheet, error)) << error;
    ASSERT_EQ(sheet.width, 2 * (96 + 6) + 6);
    const int row_pitch = (sheet.height - 6) / 3;
    for (int frame = 0; frame < 5; ++frame) {
        const int x0 = 6 + frame % 2 * (96 + 6), y0 = 6 + frame / 2 * row_pitch;
        for (int i = 0; i < 96 * 64; ++i) {
            const unsigned char* want = &frames[frame][static_cast<size_t>(i) * 4];
            const unsigned char* got =
                &sheet.pixels[(static_cast<size_t>(y0 + i / 96) * sheet.width + x0 + i % 96) * 4];
            ASSERT_TRUE(want[3] < 255 || std::equal(got, got + 4, want)) << frame << " " << i;
        }
    }
}

TEST_F(qimgCliTest, QuantizeKeepsColoursThatFitAndTakesAlphaByTheThreshold) {
    // Three colours at alphas 255, 200 and 100, and transparent pixels: below the threshold a
    // pixel becomes transparent, the others keep their colour exactly, opaque.
    const int w = 16, h = 8;
    std::vector<unsigned char> bgra(static_cast<size_t>(w) * h * 4);
    const unsigned char colours[4][4] = {
        {0,  0,   255, 255},
        {0,  200, 0,   200},
        {90, 60,  30,  100},
        {0,  0,   0,   0  }
    };
    for (int i = 0; i < w * h; ++i) std::copy(colours[i % 4], colours[i % 4] + 4, &bgra[i * 4]);
    const std::string in = path("in.png"), out = path("out.png");
    std::string error;
    save_png(in, bgra, w, h);
    const std::pair<const char*, int> cases[] = {
        {"",                                                 128},
        {"--dither",                                         128},
        {"--dither --color-strength 0.5",                    128},
        {"--palette median-cut --dither --alpha-strength 0", 128},
        {"--palette adaptive --alpha-threshold 50",          50 },
        {"--alpha-threshold 255",                            255},
    };
    PngPicture picture;
    for (const auto& [options, threshold] : cases) {
        SCOPED_TRACE(options);
        const CliRun r = run("quantize " + in + " -o " + out + " --colors 4 " + options);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");  // no note: the palette was not rounded
        ASSERT_TRUE(read_png(out, picture, error)) << error;
        ASSERT_EQ(picture.pixels.size(), bgra.size());
        for (int i = 0; i < w * h; ++i) {
            if (bgra[i * 4 + 3] < threshold) {
                EXPECT_EQ(picture.pixels[i * 4 + 3], 0) << "pixel " << i;
            } else {
                EXPECT_TRUE(std::equal(&bgra[i * 4], &bgra[i * 4] + 3, &picture.pixels[i * 4]) &&
                            picture.pixels[i * 4 + 3] == 255)
                    << "pixel " << i;
            }
        }
    }
    // Sixteen opaque colours (one at the threshold) keep all sixteen entries: no transparent
    // one takes a place. A GIF's frame 0 is read as shown.
    std::vector<unsigned char> sixteen;
    for (int i = 0; i < 16; ++i)
        sixteen.insert(sixteen.end(), {static_cast<unsigned char>(i * 16), 0, 0, 255});
    sixteen[3] = 128;
    save_png(path("sixteen.png"), sixteen, 16, 1);
    CliRun r = run("quantize " + path("sixteen.png") + " -o " + path("s.png") + " --colors 16");
    ASSERT_TRUE(read_png(path("s.png"), picture, error)) << r.err;
    sixteen[3] = 255;
    EXPECT_EQ(picture.pixels, sixteen);
    r = run("quantize " + kSample.string() + " -o " + path("q.gif") + " --colors 16");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(composed_frames(path("q.gif"))[0], composed_frames(kSample.string())[0]);
}

TEST_F(qimgCliTest, EncodeAndResaveWriteGifsThatShowTheFrames) {
    // The sample's composed frames as PNGs, encoded again: few colours, so they stay exact.
    std::string frames;
    const auto expected = composed_frames(kSample.string());
    for (int i = 0; i < 5; ++i) {
        const std::string png = path(std::to_string(i) + ".png");
        save_png(png, expected[i], 96, 64);
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

    // Standard output ("-" or /dev/stdout) is written where it stands, after what came before.
    r = run("resave " + again + " -o -");
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string resave = std::string(QIMG_CLI) + " resave " + again, joined = path("joined");
    ASSERT_EQ(std::system(("{ printf head; " + resave + " -o -; " + resave +
                           " -o /dev/stdout; } >" + joined)
                              .c_str()),
              0);
    EXPECT_EQ(slurp(joined), "head" + r.out + r.out);
    EXPECT_GT(r.out.size(), 100u);

    // A failing run leaves the target as it was and no file of its own behind.
    const std::string before = slurp(anim);
    r = run("encode " + frames + path("missing.png") + " -o " + anim);
    EXPECT_EQ(r.status, 1);
    r = run("resave " + kSample.string() + " -o " + path("no-dir/x.gif"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("no-dir/x.gif"), std::string::npos) << r.err;
    EXPECT_EQ(slurp(anim), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()),
              10);  // 5 PNGs, 2 GIFs, joined, stdout, stderr
}

// One row per kind of trouble: the exit status and the words a user reads on stderr.
TEST_F(qimgCliTest, EveryTroubleGetsItsExitStatusAndAMessageToActOn) {
    const std::string sample = kSample.string(), cut = path("cut.gif"), big = path("big.gif");
    const std::string kept = path("kept.png"), text = path("text.gif");
    std::ofstream(cut, std::ios::binary) << slurp(kSample).substr(0, 700);  // in frame 2
    std::ofstream(path("head.gif"), std::ios::binary) << slurp(kSample).substr(0, 6);
    std::ofstream(path("empty.gif"));
    std::ofstream(text) << "this is not a picture";
    std::ofstream(kept) << "kept";
    // A 65535 x 65535 screen holding one 1 x 1 image.
    const char screen[] =
        "GIF89a\xff\xff\xff\xff\x80\0\0\0\0\0\xff\xff\xff,\0\0\0\0\1\0\1\0\0"
        "\2\2\x44\1\0;";
    std::ofstream(big, std::ios::binary).write(screen, sizeof screen - 1);
    struct Case {
        std::string shell, arguments;
        int status;
        std::string words;
    };
    const Case cases[] = {
        {"",              "info " + path("missing.gif"),                                                 1, "missing.gif: does not exist"                           },
        {"",              "info " + dir_.string(),                                                       1, "is a directory"                                        },
        {"",              "info " + path("empty.gif"),                                                   1, "empty.gif: is empty"                                   },
        {"",              "render " + text + " -o " + path("x.png"),                                     1, "text.gif: not a GIF file"                              },
        {"",              "quantize " + text + " -o " + path("x.png") + " --colors 8",                   1,
         "neither a PNG nor a GIF"                                                                                                                                  },
        {"",              "info " + cut,                                                                 0, "cut.gif: warning: truncated: 2 of the frames were read"},
        {"",              "--strict render " + cut + " -o " + path("x.png"),                             1, "error: truncated: 2 of the"                            },
        {"",              "info " + path("head.gif"),                                                    1, "truncated: the file ends before its first image"       },
        {"",              "render " + big + " -o " + path("x.png"),                                      1, "too large: beyond the reading limits"                  },
        {"",              "render " + sample + " -o /dev/full",                                          1, "/dev/full: cannot write: No space left"                },
        {"ulimit -f 1; ", "render " + sample + " --scale 9 -o " + kept,                                  1,
         "kept.png: cannot write: File too large"                                                                                                                   },
 // sysfs refuses new files even to root: a directory nobody may write into.
        {"",              "render " + sample + " -o /sys/qimg-cli-test.png",                             1,
         "qimg-cli-test.png: cannot create a file beside it"                                                                                                        },
        {"",              "resave " + sample + " -o " + path("no-dir/x.gif"),                            1, "no-dir/x.gif: cannot create"                           },
        {"",              "render " + sample + " --frame 5 -o " + path("x.png"),                         1,
         "has 5 frames; there is no frame 5"                                                                                                                        },
        {"",              "quantize " + sample + " -o " + path("c.png") + " --colors 16 --palette cube", 0,
         "note: the cube palette for 16 colours has"                                                                                                                },
        {"",              "quantize " + sample + " -o x.bmp --colors 8",                                 2,
         "-o x.bmp: the name must end in .png or .gif"                                                                                                              },
        {"",              "render " + sample + " -o x.png --scale 0",                                    2,
         "--scale: '0' is not a number from 0.01 to 64\n"                                                                                                           },
        {"",              "render " + sample + " -o x.png --scale nan",                                  2, "--scale: 'nan'"                                        },
        {"",              "render " + sample + " -o x.png --frame -1",                                   2,
         "--frame: '-1' is not a whole number from 0"                                                                                                               },
        {"",              "render " + sample + " -o x.png --all",                                        2, "--all: -o needs a name with one %d"                    },
        {"",              "render " + sample + " -o",                                                    2, "-o needs a value"                                      },
        {"",              "render " + sample,                                                            2, "FILE.gif and -o OUT.png needed"                        },
        {"",              "sheet " + sample + " -o x.png --columns 0",                                   2, "--columns: '0'"                                        },
        {"",              "quantize in.png -o out.png --colors 1",                                       2, "--colors: '1'"                                         },
        {"",              "quantize in.png -o out.png --colors 8 --palette x",                           2, "--palette takes"                                       },
        {"",              "quantize in.png -o o.png --colors 8 --opaque --transparent-entry",            2,
         "exclude each other"                                                                                                                                       },
        {"",              "info " + sample + " --bogus",                                                 2, "info: unknown option '--bogus'"                        },
        {"",              "info",                                                                        2, "info needs FILE.gif"                                   },
        {"",              "frobnicate",                                                                  2, "unknown command 'frobnicate'"                          },
        {"",              "encode a.png -o out.png",                                                     2, "the output must be a .gif file"                        },
        {"",              "encode -o out.gif",                                                           2, "encode needs FRAME.png"                                },
        {"",              "resave " + sample + " " + sample + " -o out.gif",                             2, "one input file only"                                   },
        {"",              "resave " + sample + " -o out.gif --loop -1",                                  2, "--loop: '-1'"                                          },
        {"",              "info - < " + cut,                                                             0, "-: warning: truncated: 2 of the frames were read"      },
        {"",              "--max-pixels 255 info " + sample,                                             1, "too large: beyond the reading limits"                  },
        {"",              "info " + sample + " --max-pixels 0",                                          2, "--max-pixels"                                          },
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const CliRun r = run(c.arguments, c.shell);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.err.rfind("qimg: ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find(c.words), std::string::npos) << r.err;
        EXPECT_TRUE(c.status != 1 || std::count(r.err.begin(), r.err.end(), '\n') == 1) << r.err;
    }
    // Nothing that was there before is removed or changed, and no temporary file stays.
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
    EXPECT_EQ(slurp(kept), "kept");
    std::vector<std::string> left;
    for (const auto& entry : fs::directory_iterator(dir_)) left.push_back(entry.path().filename());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left,
              (std::vector<std::string>{"big.gif", "c.png", "cut.gif", "empty.gif", "head.gif",
                                        "kept.png", "stderr", "stdout", "text.gif"}));
    EXPECT_EQ(run("--help").out.find("usage: qimg"), 0u);
}

// Ctrl-C in the middle of a long step stops the program with status 130 and leaves no output.
TEST_F(qimgCliTest, InterruptStopsALongStepAndLeavesNothing) {
    int pipe_fds[2];
    ASSERT_EQ(pipe(pipe_fds), 0);
    const std::string out = path("big.png");
    const pid_t child = fork();
    if (child == 0) {
        dup2(pipe_fds[1], 2);
        close(pipe_fds[0]);
        execl(QIMG_CLI, "qimg", "render", kSample.c_str(), "--scale", "64", "--progress", "-o",
              out.c_str(), nullptr);
        _exit(127);
    }
    close(pipe_fds[1]);
    std::FILE* err = fdopen(pipe_fds[0], "r");
    char line[512];
    std::string rest;
    while (std::fgets(line, sizeof line, err) && !std::strstr(line, "scaling")) {
    }
    kill(child, SIGINT);
    while (std::fgets(line, sizeof line, err)) rest += line;
    std::fclose(err);
    int raw = 0;
    ASSERT_EQ(waitpid(child, &raw, 0), child);
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 130) << raw << rest;
    EXPECT_NE(rest.find("cancelled"), std::string::npos) << rest;
    EXPECT_TRUE(fs::is_empty(dir_));
}

}  // namespace
