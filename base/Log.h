// The program's one message log.
//
// Every message goes through a Log, sorted into five channels (Info, Error,
// Warning, Progress, Debug).  Each channel has an off switch and a set of
// destinations: the log file, standard output, standard error.  The file is
// opened lazily, in append mode, on the first message routed to it.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

#include "base/ASError.h"

// Destination bits of a channel.
enum LogDestination : int {
    LogToFile = 1,
    LogToStdout = 2,
    LogToStderr = 4,
};

// Observer notified at fixed points of the work.  The job runners and the
// per-document run call it; the Error channel also hands it every error line.
// Every method has an empty default so a sink implements only what it needs.
class ProgressSink {
public:
    virtual ~ProgressSink() = default;
    virtual void JobBegin() {}
    virtual void JobEnd() {}
    virtual void DocumentBegin(const char* /*path*/) {}
    // The share (0..1) of the whole job this document stands for, and its pages.
    virtual void DocumentShare(double /*share*/, int /*pageCount*/) {}
    // Fraction of the current document done; 1.0 once it is saved.
    virtual void Completed(double /*fraction*/) {}
    virtual void DocumentEnd() {}
    virtual void ErrorText(const char* /*text*/) {}
};

// The sink of the command-line program: ignores everything.
class NullProgressSink final : public ProgressSink {};

class Log {
public:
    enum Channel : int { kInfo = 0, kError, kWarning, kProgress, kDebug, kChannelCount };

    // Size of the buffer every message is formatted into.
    static constexpr size_t kFormatBufferSize = 5120;

    Log();
    ~Log();
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    void Info(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void Error(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void Warning(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void Progress(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void Debug(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // "An error occured: %s\n" with the core's text for the code.
    void ReportError(ASErrorCode code);
    // "%s: '%s'\n" with the context first and the core's text second.
    void ReportError(ASErrorCode code, const char* context);

    // Writes already formatted text to a channel (nothing when it is off).
    void Write(Channel channel, const char* text);
    // How many messages were sent to a channel so far, whether it is off or not.
    unsigned long Count(Channel channel) const { return m_count[channel]; }

    // Settings, normally made once by the job driver before any work.
    void SetFileName(const std::string& name) { m_fileName = name; }
    const std::string& FileName() const { return m_fileName; }
    void SetDestinations(Channel channel, int bits) { m_dest[channel] = bits; }
    int Destinations(Channel channel) const { return m_dest[channel]; }
    void SetChannelOff(Channel channel, bool off) { m_off[channel] = off; }
    bool IsChannelOff(Channel channel) const { return m_off[channel]; }
    void SetFileLoggingAllowed(bool allowed) { m_fileAllowed = allowed; }
    // 1: one time stamp when the file is opened; 2: every message is stamped.
    void SetStampMode(int mode) { m_stampMode = mode; }
    int StampMode() const { return m_stampMode; }
    void SetConsoleQuiet(bool quiet) { m_consoleQuiet = quiet; }
    void SetProgressSink(ProgressSink* sink) { m_sink = sink ? sink : &m_nullSink; }
    ProgressSink& Sink() { return *m_sink; }
    // The console streams (standard output and error unless replaced, as
    // tests do to capture what would be printed).
    void SetConsoleStreams(FILE* out, FILE* err) { m_out = out; m_err = err; }

    // Opens the log file (append, or truncate when `fresh`); true on success.
    // A failure warns on the error stream once and is silent afterwards.
    bool OpenFile(bool fresh = false);
    bool IsFileOpen() const { return m_file != nullptr; }
    // Closes the file if open.
    void Close();

private:
    void WriteTo(int destinations, const char* text);
    void VWrite(Channel channel, const char* format, va_list args);

    std::string m_fileName = "Log.txt";
    FILE* m_file = nullptr;
    bool m_fileAllowed = true;
    int m_stampMode = 1;
    int m_dest[kChannelCount] = {LogToStderr, LogToStderr, LogToStderr, LogToStdout, LogToStdout};
    bool m_off[kChannelCount] = {false, false, false, true, true};
    unsigned long m_count[kChannelCount] = {};
    bool m_consoleQuiet = false;
    bool m_openWarningGiven = false;
    NullProgressSink m_nullSink;
    ProgressSink* m_sink = &m_nullSink;
    FILE* m_out = stdout;
    FILE* m_err = stderr;
};
