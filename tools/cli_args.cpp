#include "cli_args.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

bool ArgList::take_value(const std::string& option, std::string& value, std::string& error) {
    if (empty()) {
        error = option + " needs a value";
        return false;
    }
    value = take();
    return true;
}

namespace {
// A range bound as people write it: 0.01, 64, 0.5.
std::string number_text(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}
}  // namespace

bool parse_int(const std::string& option, const std::string& text, int min, int max, int& value,
               std::string& error) {
    char* end = nullptr;
    errno = 0;
    const long parsed = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || parsed < min || parsed > max) {
        error = option + ": '" + text + "' is not a whole number from " + std::to_string(min) +
                " to " + std::to_string(max);
        return false;
    }
    value = static_cast<int>(parsed);
    return true;
}

bool parse_float(const std::string& option, const std::string& text, float min, float max,
                 float& value, std::string& error) {
    char* end = nullptr;
    errno = 0;
    const float parsed = std::strtof(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno != 0 || !std::isfinite(parsed) || parsed < min ||
        parsed > max) {
        error = option + ": '" + text + "' is not a number from " + number_text(min) + " to " +
                number_text(max);
        return false;
    }
    value = parsed;
    return true;
}

bool parse_scale_pair(const std::string& option, const std::string& text, float& sx, float& sy,
                      std::string& error) {
    constexpr float kMin = 0.01f;
    constexpr float kMax = 64.0f;
    const size_t comma = text.find(',');
    if (comma == std::string::npos) {
        if (!parse_float(option, text, kMin, kMax, sx, error)) return false;
        sy = sx;
        return true;
    }
    return parse_float(option, text.substr(0, comma), kMin, kMax, sx, error) &&
           parse_float(option, text.substr(comma + 1), kMin, kMax, sy, error);
}
