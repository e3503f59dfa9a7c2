#include "cli_progress.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>

namespace {
volatile std::sig_atomic_t g_interrupted = 0;
bool g_lines = false;  // --progress: report even when standard error is no terminal

extern "C" void on_interrupt(int) {
    g_interrupted = 1;
}

constexpr int kBarWidth = 30;
}  // namespace

void TerminalProgress::install_interrupt_handler() {
    std::signal(SIGINT, on_interrupt);
}

void TerminalProgress::report_in_lines() {
    g_lines = true;
}

bool TerminalProgress::interrupted() {
    return g_interrupted != 0;
}

TerminalProgress::TerminalProgress(std::string label)
    : label_(std::move(label)), on_terminal_(isatty(STDERR_FILENO) != 0) {}

TerminalProgress::~TerminalProgress() {
    finish();
}

bool TerminalProgress::progress(int done, int total, int, int) {
    if (interrupted()) return false;
    if (!(on_terminal_ || g_lines) || total <= 0) return true;
    const long long clamped = done < 0 ? 0 : (done > total ? total : done);
    const int permille = static_cast<int>(clamped * 1000 / total);
    if (permille == last_permille_) return true;  // redraw only when the bar moves
    if (!on_terminal_) {
        // A line for every tenth, for a program or a log reading standard error.
        if (last_permille_ < 0 || permille / 100 != last_permille_ / 100)
            std::fprintf(stderr, "%s %d%%\n", label_.c_str(), permille / 10);
        last_permille_ = permille;
        return true;
    }
    last_permille_ = permille;
    const int filled = permille * kBarWidth / 1000;
    std::fprintf(stderr, "\r%s [", label_.c_str());
    for (int i = 0; i < kBarWidth; ++i) std::fputc(i < filled ? '#' : ' ', stderr);
    std::fprintf(stderr, "] %3d%%", permille / 10);
    std::fflush(stderr);
    drawn_ = true;
    return true;
}

void TerminalProgress::finish() {
    if (!drawn_) return;
    std::fprintf(stderr, "\r%*s\r", static_cast<int>(label_.size()) + kBarWidth + 8, "");
    std::fflush(stderr);
    drawn_ = false;
}
