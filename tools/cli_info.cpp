// qimg info FILE.gif [--json]
#include <cstdio>

#include "cli_args.h"
#include "cli_common.h"

namespace {

struct FrameFacts {
    qRect rect;
    int delay_ms = 0;
    int disposal = 0;
    int transparent = -1;
    int table_size = 0;
    bool local_table = false;
    bool interlaced = false;
};

FrameFacts facts_of(qGifAnimation& gif, int index) {
    FrameFacts f;
    const qGifFrame* frame = gif.frame(index);
    if (!frame) return f;
    f.rect = frame->frame_rect();
    f.delay_ms = frame->frame_delay();
    f.disposal = frame->frame_disposal();
    f.transparent = frame->control() ? frame->control()->transparent : -1;
    f.local_table = frame->local_colormap() != nullptr;
    const qIColormap* table = f.local_table ? frame->local_colormap() : gif.global_colormap();
    f.table_size = table ? table->num_colors() : 0;
    f.interlaced = frame->interlaced();
    return f;
}

// "forever", or how many times the animation plays.
std::string loop_text(int passes) {
    return passes < 0 ? "forever" : std::to_string(passes);
}

std::string comment_bytes(const qGifAnimation& gif, int index) {
    const qObjArray<char>* comment = gif.comment(index);
    std::string bytes;
    for (int i = 0; comment && i < comment->count(); ++i) bytes += (*comment)[i];
    return bytes;
}

// A comment as one line of text: printable ASCII as it is, anything else as \xNN.
std::string comment_text(const qGifAnimation& gif, int index) {
    std::string out;
    for (const unsigned char c : comment_bytes(gif, index)) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, c >= 0x20 && c < 0x7f ? "%c" : "\\x%02x", c);
        out += escaped;
    }
    return out;
}

void print_text(const std::string& path, qGifAnimation& gif) {
    const qSize screen = gif.size();
    std::printf("%s: GIF%s, screen %d x %d, %d frame%s, plays %s%s\n", path.c_str(), gif.version(),
                screen.width, screen.height, gif.num_frames(), gif.num_frames() == 1 ? "" : "s",
                loop_text(gif.loop_count()).c_str(), gif.loop_count() == 1 ? " time" : "");
    // The aspect byte stores (width / height) * 64 - 15; 0 means square pixels, say nothing.
    if (gif.pixel_aspect() != 0)
        std::printf("  pixel aspect ratio %g (byte %d)\n", (gif.pixel_aspect() + 15) / 64.0,
                    gif.pixel_aspect());
    if (const qIColormap* global = gif.global_colormap())
        std::printf("  global colour table: %d entries, background index %d\n",
                    global->num_colors(), gif.background());
    for (int i = 0; i < gif.num_comments(); ++i)
        std::printf("  comment: %s\n", comment_text(gif, i).c_str());
    std::printf("  %5s  %-21s %7s %8s %11s %-12s %s\n", "frame", "rectangle", "delay", "disposal",
                "transparent", "colours", "interlaced");
    for (int i = 0; i < gif.num_frames(); ++i) {
        const FrameFacts f = facts_of(gif, i);
        char rect[64];
        std::snprintf(rect, sizeof rect, "%dx%d+%d+%d", f.rect.width, f.rect.height, f.rect.x,
                      f.rect.y);
        char colours[32];
        std::snprintf(colours, sizeof colours, "%d %s", f.table_size,
                      f.local_table ? "local" : "global");
        std::printf("  %5d  %-21s %5dms %8d %11s %-12s %s\n", i, rect, f.delay_ms, f.disposal,
                    f.transparent < 0 ? "-" : std::to_string(f.transparent).c_str(), colours,
                    f.interlaced ? "yes" : "no");
    }
}

// JSON strings for the file name and the comments, escaped as JSON requires; bytes beyond ASCII
// are taken as Latin-1, so that any comment gives valid JSON.
std::string json_string(const std::string& text) {
    std::string out = "\"";
    for (const unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20 || c >= 0x7f) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

void print_json(const std::string& path, qGifAnimation& gif) {
    const qSize screen = gif.size();
    const int global = gif.global_colormap() ? gif.global_colormap()->num_colors() : 0;
    std::printf("{\n  \"file\": %s,\n  \"version\": \"%s\",\n  \"width\": %d,\n  \"height\": %d,\n",
                json_string(path).c_str(), gif.version(), screen.width, screen.height);
    std::printf("  \"pixel_aspect\": %d,\n", gif.pixel_aspect());
    // plays: how many times the animation runs, -1 for forever (a looping count of 0 in the file).
    std::printf("  \"plays\": %d,\n  \"global_colors\": %d,\n  \"background\": %d,\n",
                gif.loop_count(), global, gif.background());
    std::printf("  \"comments\": [");
    for (int i = 0; i < gif.num_comments(); ++i) {
        std::printf("%s%s", i ? ", " : "", json_string(comment_bytes(gif, i)).c_str());
    }
    std::printf("],\n  \"frame_count\": %d,\n", gif.num_frames());
    std::printf("  \"frames\": [");
    for (int i = 0; i < gif.num_frames(); ++i) {
        const FrameFacts f = facts_of(gif, i);
        std::printf(
            "%s\n    {\"x\": %d, \"y\": %d, \"width\": %d, \"height\": %d, "
            "\"delay_ms\": %d, \"disposal\": %d, \"transparent\": %d, "
            "\"colors\": %d, \"local_colors\": %s, \"interlaced\": %s}",
            i ? "," : "", f.rect.x, f.rect.y, f.rect.width, f.rect.height, f.delay_ms, f.disposal,
            f.transparent, f.table_size, f.local_table ? "true" : "false",
            f.interlaced ? "true" : "false");
    }
    std::printf("\n  ]\n}\n");
}

}  // namespace

int command_info(ArgList& args) {
    std::string input;
    bool json = false;
    while (!args.empty()) {
        const std::string word = args.take();
        if (word == "--json")
            json = true;
        else if (word.size() > 1 && word[0] == '-')
            return report_usage("info: unknown option '" + word + "'");
        else if (input.empty())
            input = word;
        else
            return report_usage("info: one input file only");
    }
    if (input.empty()) return report_usage("info needs FILE.gif");
    LoadedGif gif;
    if (const int status = load_gif(input, gif); status != kExitOk) return status;
    if (json)
        print_json(input, gif.animation);
    else
        print_text(input, gif.animation);
    return kExitOk;
}
