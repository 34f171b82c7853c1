// The message log: channels, destinations, the lazily opened log file.
#include "base/Log.h"

#include <cstdarg>
#include <ctime>
#include <string>

#include "base/Formatters.h"

namespace {

struct tm LocalNow() {
    time_t now = time(nullptr);
    struct tm parts {};
    localtime_r(&now, &parts);
    return parts;
}

}  // namespace

Log::Log() = default;

Log::~Log() { Close(); }

void Log::Close() {
    if (m_file) {
        fclose(m_file);
        m_file = nullptr;
    }
}

bool Log::OpenFile(bool fresh) {
    if (m_file) return true;
    m_file = fopen(m_fileName.c_str(), fresh ? "w" : "a");
    if (!m_file) {
        if (!m_openWarningGiven) {
            fprintf(m_err, "Warning: error opening log file %s\n", m_fileName.c_str());
            fflush(m_err);
            m_openWarningGiven = true;
        }
        return false;
    }
    fputs("\n--------------------\n\n", m_file);
    if (m_stampMode == 1) {
        struct tm now = LocalNow();
        char stamp[64];
        // asctime's fixed English form, ending in a newline.
        if (asctime_r(&now, stamp)) fputs(stamp, m_file);
        fputs("\n", m_file);
    }
    fflush(m_file);
    Debug("Writing error log: %s\n", m_fileName.c_str());
    return true;
}

void Log::WriteTo(int destinations, const char* text) {
    std::string stamped;
    if (m_stampMode == 2) {
        stamped = "[ " + LogStampText(LocalNow()) + " ]\t" + text;
        text = stamped.c_str();
    }
    if (destinations & LogToFile) {
        if (!m_file && m_fileAllowed) OpenFile();
        if (m_file) {
            fprintf(m_file, "%s", text);
            fflush(m_file);
        }
    }
    if (!m_consoleQuiet) {
        if (destinations & LogToStdout) {
            fputs(text, m_out);
            fflush(m_out);
        }
        if (destinations & LogToStderr) {
            fputs(text, m_err);
            fflush(m_err);
        }
    }
}

void Log::Write(Channel channel, const char* text) {
    if (channel < 0 || channel >= kChannelCount || !text) return;
    ++m_count[channel];
    if (channel == kError) m_sink->ErrorText(text);
    if (m_off[channel]) return;
    WriteTo(m_dest[channel], text);
}

void Log::VWrite(Channel channel, const char* format, va_list args) {
    if (m_off[channel] && channel != kError) {
        ++m_count[channel];  // counted, though not worth formatting
        return;
    }
    char buffer[kFormatBufferSize];
    vsnprintf(buffer, sizeof buffer, format, args);
    Write(channel, buffer);
}

#define TM_LOG_CHANNEL(method, channel)             \
    void Log::method(const char* format, ...) {     \
        va_list args;                               \
        va_start(args, format);                     \
        VWrite(channel, format, args);              \
        va_end(args);                               \
    }

TM_LOG_CHANNEL(Info, kInfo)
TM_LOG_CHANNEL(Error, kError)
TM_LOG_CHANNEL(Warning, kWarning)
TM_LOG_CHANNEL(Progress, kProgress)
TM_LOG_CHANNEL(Debug, kDebug)
#undef TM_LOG_CHANNEL

void Log::ReportError(ASErrorCode code) {
    char text[256];
    ASGetErrorText(code, text, sizeof text);
    Error("An error occured: %s\n", text);
}

void Log::ReportError(ASErrorCode code, const char* context) {
    char text[256];
    ASGetErrorText(code, text, sizeof text);
    Error("%s: '%s'\n", context ? context : "", text);
}
