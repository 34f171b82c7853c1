#include "settings/SettingsValues.h"

#include <charconv>
#include <cstdio>
#include <cmath>
#include <stdexcept>

#include "base/Log.h"

namespace settingsvalues {

namespace {
std::string Stripped(const std::string& text) {
    size_t b = text.find_first_not_of(" \t\r\n\v");
    if (b == std::string::npos) return std::string();
    size_t e = text.find_last_not_of(" \t\r\n\v");
    std::string s = text.substr(b, e - b + 1);
    if (s.size() > 1 && s[0] == '+' && s[1] != '-') s.erase(0, 1);
    return s;
}
[[noreturn]] void Bad(const std::string& text, const char* what, const char* setting) {
    throw std::runtime_error("'" + text + "' is not " + what + " (setting '" + setting + "')");
}
}  // namespace

ASInt32 ToInt(const std::string& text, const char* setting) {
    std::string s = Stripped(text);
    ASInt32 v = 0;
    auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (s.empty() || r.ec != std::errc() || r.ptr != s.data() + s.size()) Bad(text, "a whole number", setting);
    return v;
}

double ToNumber(const std::string& text, const char* setting) {
    std::string s = Stripped(text);
    double v = 0;
    auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (s.empty() || r.ec != std::errc() || r.ptr != s.data() + s.size() || !std::isfinite(v))
        Bad(text, "a number", setting);
    return v;
}

void WarnValue(Log& log, const char* setting, const std::string& value) {
    log.Warning("Warning: ignoring value '%s' for setting '%s'\n", value.c_str(), setting);
}

bool SetWord(Log& log, ASAtom& target, SettingWordList list, const std::string& word, const char* setting) {
    if (!IsSettingWord(list, word)) {
        WarnValue(log, setting, word);
        return false;
    }
    target = ASAtomFromString(word);
    return true;
}

bool SetIntInRange(Log& log, ASInt32& target, ASInt32 value, ASInt32 lo, ASInt32 hi, const char* setting) {
    if (value < lo || value > hi) {
        WarnValue(log, setting, std::to_string(value));
        return false;
    }
    target = value;
    return true;
}

bool SetNumberInRange(Log& log, double& target, double value, double lo, double hi, const char* setting) {
    if (!(value >= lo && value <= hi)) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "%g", value);
        WarnValue(log, setting, buf);
        return false;
    }
    target = value;
    return true;
}

}  // namespace settingsvalues
