#include "frontend/JsonResults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "base/Log.h"
#include "pipeline/Statistics.h"
#include "settings/TrimoraPreferences.h"

namespace jobs {

namespace {

int g_results = -1;

int64_t NowNanos() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int64_t SizeOf(const std::string& path) {
    struct stat st {};
    if (path.empty() || stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return -1;
    return st.st_size;
}

// The length of the valid UTF-8 sequence at `s[i]`, 0 when there is none.
size_t Utf8Length(std::string_view s, size_t i) {
    const auto b = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char c = b(i);
    size_t n;
    uint32_t min;
    if (c < 0x80) return 1;
    if ((c & 0xE0) == 0xC0) n = 2, min = 0x80;
    else if ((c & 0xF0) == 0xE0) n = 3, min = 0x800;
    else if ((c & 0xF8) == 0xF0) n = 4, min = 0x10000;
    else return 0;
    if (i + n > s.size()) return 0;
    uint32_t cp = c & (0x7F >> n);
    for (size_t k = 1; k < n; ++k) {
        if ((b(i + k) & 0xC0) != 0x80) return 0;
        cp = cp << 6 | (b(i + k) & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return n;
}

std::string Number(double v) {
    if (!std::isfinite(v)) return "0";
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.3f", v);
    return buf;
}

}  // namespace

std::string JsonString(std::string_view text) {
    std::string out = "\"";
    for (size_t i = 0; i < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
            ++i;
        } else if (c < 0x20 || c == 0x7F) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
            ++i;
        } else if (size_t n = Utf8Length(text, i)) {
            out.append(text.substr(i, n));
            i += n;
        } else {
            out += "\\ufffd";
            ++i;
        }
    }
    return out + "\"";
}

std::string RecordJson(const ResultRecord& r) {
    std::string s = "{\"input\":" + JsonString(r.inputs.empty() ? std::string() : r.inputs.front());
    if (r.inputs.size() > 1) {
        s += ",\"inputs\":[";
        for (size_t i = 0; i < r.inputs.size(); ++i) s += (i ? "," : "") + JsonString(r.inputs[i]);
        s += "]";
    }
    s += ",\"output\":" + (r.output.empty() ? std::string("null") : JsonString(r.output));
    s += ",\"success\":" + std::string(r.success ? "true" : "false");
    s += ",\"error\":" + (r.success ? std::string("null") : JsonString(r.error));
    s += ",\"size_before\":" + std::to_string(r.sizeBefore);
    s += ",\"size_after\":" + (r.sizeAfter < 0 ? std::string("null") : std::to_string(r.sizeAfter));
    s += ",\"elapsed\":" + Number(r.elapsed);
    s += ",\"warnings\":" + std::to_string(r.warnings);
    s += ",\"kept_input\":" + std::string(r.keptInput ? "true" : "false");
    s += ",\"stats\":{";
    bool first = true;
    for (const auto& [key, value] : r.counters) {
        s += (first ? "" : ",") + JsonString(key) + ":" + std::to_string(value);
        first = false;
    }
    for (const auto& [key, value] : r.flags) {
        s += (first ? "" : ",") + JsonString(key) + ":" + (value ? "true" : "false");
        first = false;
    }
    return s + "}}\n";
}

bool OpenResultsFile(const std::string& path, std::string& reason) {
    CloseResultsFile();
    g_results = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (g_results < 0) {
        reason = std::strerror(errno);
        return false;
    }
    return true;
}

bool ResultsEnabled() { return g_results >= 0; }

void CloseResultsFile() {
    if (g_results >= 0) ::close(g_results);
    g_results = -1;
}

ResultScope::ResultScope(std::vector<std::string> inputs, std::string output, Log& log)
    : m_log(log), m_warningsAtStart(log.Count(Log::kWarning)), m_startNanos(NowNanos()) {
    m_record.inputs = std::move(inputs);
    m_record.output = std::move(output);
    m_record.sizeBefore = 0;
    for (const std::string& in : m_record.inputs) m_record.sizeBefore += std::max<int64_t>(0, SizeOf(in));
}

void ResultScope::Finish(ASErrorCode result, const CTrimoraPreferences* prefs, bool keptInput) {
    Write(result == 0, result == 0 ? std::string() : std::string(ASGetErrorString(result)), prefs, keptInput);
}

void ResultScope::Fail(std::string why) { Write(false, std::move(why), nullptr, false); }

void ResultScope::Write(bool success, std::string error, const CTrimoraPreferences* prefs, bool keptInput) {
    if (m_done) return;
    m_done = true;
    if (!ResultsEnabled()) return;
    ResultRecord& r = m_record;
    r.success = success;
    if (!r.success) {
        r.error = std::move(error);
        r.output.clear();
    } else {
        r.sizeAfter = SizeOf(r.output);
    }
    r.keptInput = keptInput;
    r.elapsed = double(NowNanos() - m_startNanos) / 1e9;
    r.warnings = m_log.Count(Log::kWarning) - m_warningsAtStart;
    if (prefs) {
        pipeline::Statistics stats(const_cast<CTrimoraPreferences*>(prefs)->StatisticsDict());
        for (const char* key : pipeline::StatisticsCounterKeys()) r.counters.emplace_back(key, stats.Get(key));
        for (const char* key : pipeline::StatisticsFlagKeys()) r.flags.emplace_back(key, stats.GetFlag(key));
    }
    const std::string line = RecordJson(r);
    // One write per record: appends from other processes do not interleave.
    if (::write(g_results, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        m_log.Warning("Warning: the results record of %s could not be written\n",
                      r.inputs.empty() ? "" : r.inputs.front().c_str());
}

ResultScope::~ResultScope() {
    // Something other than a core error ended the document.
    if (!m_done) Finish(ErrBuildCode(ErrSevNormal, ErrSysGeneral, kErrInternal), nullptr);
}

}  // namespace jobs
