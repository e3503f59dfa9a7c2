// qimg: the command-line face of the library. Reads GIFs, composes and renders their frames,
// and reduces true-colour pictures to palettes.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli_args.h"
#include "cli_common.h"
#include "cli_gif_write.h"
#include "cli_progress.h"

namespace {

constexpr const char* kHelp = R"(usage: qimg COMMAND [OPTIONS]

Commands:
  info FILE.gif [--json]
        Screen size, loop count, frame count, global colour table, background index and
        comments, and for every frame its rectangle, delay, disposal method, transparent
        index, colour-table size and interlacing.
  render FILE.gif -o OUT.png [--frame N | --all] [--scale SX[,SY]]
        Writes frame N (default 0) as the screen shows it, every earlier frame composed
        with its disposal method, magnified by nearest neighbour (factors 0.01 to 64).
        --all writes every frame; OUT names them with one %d, as in frame-%03d.png.
  sheet FILE.gif -o SHEET.png [--columns C] [--scale S]
        Writes every composed frame on one contact sheet, labelled by index and delay.
  quantize IN.png|IN.gif -o OUT.png|OUT.gif --colors N
           [--palette quality|median-cut|cube|gray] [--dither [--color-strength S]
           [--alpha-strength S]] [--alpha-threshold A] [--opaque | --transparent-entry]
        Reduces a picture (a GIF's frame 0 as shown) to N colours (2 to 256) and writes
        an indexed PNG or GIF, as the output name ends, with its palette and transparency.
        quality (default) chooses the least-error palette and maps each pixel to its exact
        nearest colour; median-cut (also: adaptive) is the faster median cut; cube and gray
        are fixed palettes in whole steps (stderr says when that is not N entries).
        --dither diffuses the error (strengths 0 to 1, default 1; the quality palette spares
        flat areas and edges and keeps alpha two-level). Pixels with alpha below A (1 to
        255, default 128) become transparent, the others opaque, unless alpha is diffused.
        The palette has a transparent entry only for a picture with transparent pixels, or
        with --transparent-entry; --opaque drops alpha.
  encode FRAME.png... -o OUT.gif [--delay MS] [--loop N] [--colors N] [--dither]
         [--palettes shared|local|auto]
        Makes an animated GIF of the pictures (all of one size), one palette of N
        colours (default 256) for all, each frame cut to what changed. --delay per
        frame (default 100 ms); --loop plays N times (0, the default: without end);
        --palettes local gives every frame its own colour table, auto only the frames
        that one shared palette serves badly.
  resave IN.gif -o OUT.gif [--delay MS] [--loop N] [--optimize]
        Writes a GIF again, frame by frame as read; --delay and --loop replace the
        file's; --optimize re-cuts the frames from what they show, when that is smaller.

A GIF named - is read from standard input, frame by frame as it arrives.

Options:
  --max-pixels N   refuse a GIF whose screen or any frame has more than N pixels
                   (default 268435456, 16384 x 16384)
  --max-memory MB  refuse a GIF whose frames need more than MB megabytes in all
                   (default 1024)
  -h, --help       show this text
  --version        show the version
  --strict         a GIF that breaks off or is damaged after some frames is an error
                   (exit status 1), not a warning
  --progress       report progress on standard error as lines even when it is no terminal

A progress bar appears on a terminal for long work (reading, composing, scaling,
quantizing, writing); Ctrl-C stops it cleanly and leaves no partial output. Every file is
written to a temporary file beside it and renamed into place when complete; an output
named - is standard output.
Exit status: 0 success (also for a GIF read up to a break, with a warning), 1 a file or
the library refused the work, 2 a wrong command line, 130 cancelled.
)";

}  // namespace

int main(int argc, char** argv) {
    // The options every command takes, wherever they stand.
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "-h" || word == "--help" || (i == 1 && word == "help")) {
            std::fputs(kHelp, stdout);
            return kExitOk;
        }
        if (word == "--strict")
            set_strict(true);
        else if (word == "--progress")
            TerminalProgress::report_in_lines();
        else
            words.push_back(word);
    }
    std::string error;
    if (!take_limit_options(words, error)) return report_usage(error);
    if (words.empty()) {
        std::fputs(kHelp, stderr);
        return kExitUsage;
    }
    const std::string command = words.front();
    if (command == "--version") {
        std::printf("qimg %s\n", QIMG_VERSION_STRING);
        return kExitOk;
    }
    TerminalProgress::install_interrupt_handler();
    // A file size limit makes a write fail with a message instead of ending the program.
    std::signal(SIGXFSZ, SIG_IGN);
    ArgList args(std::vector<std::string>(words.begin() + 1, words.end()));
    if (command == "info") return command_info(args);
    if (command == "render") return command_render(args);
    if (command == "sheet") return command_sheet(args);
    if (command == "quantize") return command_quantize(args);
    if (command == "encode") return command_encode(args);
    if (command == "resave") return command_resave(args);
    return report_usage("unknown command '" + command + "'");
}
