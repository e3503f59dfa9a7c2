// cli_progress.h: the command-line program's progress bar and Ctrl-C handling.
#pragma once

#include <qimg/qimg.h>

#include <string>

// A qIMonitor that draws a bar on standard error when it is a terminal, and answers false once
// the user pressed Ctrl-C, so the library stops cleanly and returns 1.
class TerminalProgress : public qIMonitor {
public:
    explicit TerminalProgress(std::string label);
    ~TerminalProgress() override;
    bool progress(int done, int total, int, int) override;
    // Clears the bar line, if one was drawn.
    void finish();

    // Installs the SIGINT handler that the monitors consult. Call once at start-up.
    static void install_interrupt_handler();
    static bool interrupted();
    // From now on, without a terminal, a line "LABEL N%" for every tenth of the work.
    static void report_in_lines();

private:
    std::string label_;
    bool on_terminal_;
    bool drawn_ = false;
    int last_permille_ = -1;
};

// A monitor that only stops the work on Ctrl-C, for steps inside a step that shows the bar.
class InterruptCheck : public qIMonitor {
public:
    bool progress(int, int, int, int) override { return !TerminalProgress::interrupted(); }
};
