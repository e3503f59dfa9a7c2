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

// --strict: a GIF that breaks off or is damaged after some frames fails instead of warning.
void set_strict(bool strict);

// One error line on standard error: "qimg: FILE: what went wrong".
int report_error(const std::string& file, const std::string& message);
// The same for a library status, its meaning in words; 1 (cancelled) gives kExitCancelled.
int report_status(const std::string& file, const std::string& action, int status);
int report_usage(const std::string& message);

// Whether `path` ends in `extension` (".gif"), in any case.
bool has_extension(const std::string& path, const std::string& extension);

// What an input file holds, judged by its first bytes.
enum class FileKind { gif, png, other };
// The kind of an existing, readable, non-empty file; otherwise prints why it cannot be read
// ("does not exist", "is a directory", "is empty", ...) and returns false.
bool sniff_input(const std::string& path, FileKind& kind);

// A GIF read, its screen at least the size of its first image.
struct LoadedGif {
    qGifAnimation animation;
};
// Reads `path` ("-": standard input, through the push reader) with a progress bar, under the
// browser rules and the reading limits; on failure prints the error and returns its exit status.
// A file that breaks off (or is damaged) after some frames gives a warning with how many frames
// were read, and exit status 0 unless --strict.
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

    // 0, or -6 for a size beyond what the program takes (1 GiB of pixels).
    int create(qSize canvas_size);
};
// Makes `canvas`; a size beyond the limit prints "FILE: too large: WHAT W x H ..." and returns
// kExitFailure.
int create_canvas(Canvas& canvas, qSize size, const std::string& file, const std::string& what);

int command_info(ArgList& args);
int command_render(ArgList& args);
int command_sheet(ArgList& args);
int command_quantize(ArgList& args);
