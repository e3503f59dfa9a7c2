// cli_common.h: what the command-line program's commands share.
#pragma once

#include <qimg/qimg.h>

#include <cstdint>
#include <string>
#include <vector>

class ArgList;

// Exit statuses of the program.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;      // a file or the library refused the work
constexpr int kExitUsage = 2;        // the command line was wrong
constexpr int kExitCancelled = 130;  // Ctrl-C, as shells report SIGINT

// One error line on standard error: "qimg: FILE: what went wrong".
int report_error(const std::string& file, const std::string& message);
// The same for a library status: "qimg: FILE: <meaning> (status N)"; 1 gives kExitCancelled.
int report_status(const std::string& file, const std::string& action, int status);
int report_usage(const std::string& message);

// A GIF read into a proxy, with the animation behind it.
struct LoadedGif {
    qImageProxy proxy;
    qIAnimation* animation = nullptr;
};
// Reads `path` ("-": standard input, through the push reader) with a progress bar, under the
// browser rules and the reading limits; on failure prints the error and returns its exit status.
int load_gif(const std::string& path, LoadedGif& gif);
// The reading limits: what one frame or the screen may declare, and what all frames may take.
struct ReadLimits {
    int64_t max_pixels = int64_t{1} << 28;  // 16384 x 16384
    int64_t max_memory_mb = 1024;
};
ReadLimits& read_limits();
// Takes "--max-pixels N" and "--max-memory MB" out of `words`; false (with a message) for a
// missing or bad value.
bool take_limit_options(std::vector<std::string>& words, std::string& error);

// A PT_BGRA32 canvas in memory with a writable view bound to it.
struct Canvas {
    qSize size;
    int stride = 0;
    std::vector<unsigned char> pixels;
    qImageEdit view;

    // 0, or -6 for a size whose buffer cannot be made.
    int create(qSize canvas_size);
};

int command_info(ArgList& args);
int command_render(ArgList& args);
int command_sheet(ArgList& args);
int command_quantize(ArgList& args);
