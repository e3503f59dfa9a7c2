// cli_common.h: what the command-line program's commands share.
#pragma once

#include <qimg/qimg.h>

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
// Reads `path` with a progress bar; on failure prints the error and returns its exit status.
int load_gif(const std::string& path, LoadedGif& gif);

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
