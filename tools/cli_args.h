// cli_args.h: small, strict parsing of the command-line program's arguments.
#pragma once

#include <string>
#include <vector>

// The words after the command name, consumed front to back.
class ArgList {
public:
    explicit ArgList(std::vector<std::string> words) : words_(std::move(words)) {}

    bool empty() const { return next_ >= words_.size(); }
    const std::string& peek() const { return words_[next_]; }
    std::string take() { return words_[next_++]; }

    // For "--name VALUE": the value, or an error when it is missing.
    bool take_value(const std::string& option, std::string& value, std::string& error);

private:
    std::vector<std::string> words_;
    size_t next_ = 0;
};

// Whole-string conversions of the value of `option`; false (with a message that names the
// option) on anything that is not entirely a number in the range.
bool parse_int(const std::string& option, const std::string& text, int min, int max, int& value,
               std::string& error);
bool parse_float(const std::string& option, const std::string& text, float min, float max,
                 float& value, std::string& error);
// "SX" or "SX,SY".
bool parse_scale_pair(const std::string& option, const std::string& text, float& sx, float& sy,
                      std::string& error);
