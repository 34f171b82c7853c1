// The output file of a save: buffered writes into the temporary file of
// pdfcore/AtomicFile.h, fields patched in place, and the final commit.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "pdfcore/AtomicFile.h"
#include "pdfcore/CosWriter.h"

namespace {

[[noreturn]] void BadParm() { ASRaiseErr(ErrSysGeneral, kErrBadParm); }

int64_t g_failAfter = -1;
int g_delayMillis = 0;

}  // namespace

void CosOutputFileSetFailAfterForTesting(int64_t bytes) { g_failAfter = bytes; }
void CosOutputFileSetDelayForTesting(int milliseconds) { g_delayMillis = milliseconds > 0 ? milliseconds : 0; }

CosOutputFile::CosOutputFile(const std::string& targetPath) {
    if (targetPath.empty()) BadParm();
    m_temp = std::make_unique<CosTempFile>(targetPath);
    m_fd = m_temp->Fd();
    m_buffer.resize(1 << 18);
}

CosOutputFile::~CosOutputFile() {
    if (!m_committed) Abandon();
}

const std::string& CosOutputFile::TempPath() const { return m_temp->TempPath(); }

void CosOutputFile::Abandon() {
    m_fd = -1;
    if (m_temp && !m_committed) m_temp->Discard();
}

void CosOutputFile::RawWrite(const void* data, size_t length) {
    if (m_fd < 0) ASRaiseErr(ErrSysFile, kErrFileWrite);
    const char* p = static_cast<const char*>(data);
    while (length > 0) {
        ssize_t n = write(m_fd, p, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) ASRaiseErr(ErrSysFile, kErrFileWrite);
        p += n;
        length -= static_cast<size_t>(n);
    }
}

void CosOutputFile::RawPwrite(const void* data, size_t length, int64_t offset) {
    if (m_fd < 0) ASRaiseErr(ErrSysFile, kErrFileWrite);
    const char* p = static_cast<const char*>(data);
    while (length > 0) {
        ssize_t n = pwrite(m_fd, p, length, offset);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) ASRaiseErr(ErrSysFile, kErrFileWrite);
        p += n;
        offset += n;
        length -= static_cast<size_t>(n);
    }
}

void CosOutputFile::Flush() {
    if (m_used == 0) return;
    size_t n = m_used;
    m_used = 0;
    RawWrite(m_buffer.data(), n);
}

void CosOutputFile::Write(const void* data, size_t length) {
    if (m_committed) BadParm();
    if (length == 0) return;  // `data` may then be null, which memcpy must not see
    if (g_delayMillis > 0) usleep(static_cast<useconds_t>(g_delayMillis) * 1000);
    if (g_failAfter >= 0 && m_written + static_cast<int64_t>(length) > g_failAfter)
        ASRaiseErr(ErrSysFile, kErrFileWrite);
    if (length > m_buffer.size() / 2) {
        Flush();
        RawWrite(data, length);
    } else {
        if (m_used + length > m_buffer.size()) Flush();
        memcpy(m_buffer.data() + m_used, data, length);
        m_used += length;
    }
    m_written += static_cast<int64_t>(length);
}

void CosOutputFile::PatchField(int64_t offset, long widthNumber, std::string_view text) {
    static const char kBlanks[] = "                                ";  // 32 blanks
    char widthText[32];
    int width = snprintf(widthText, sizeof widthText, "%ld", widthNumber);
    if (offset < 0 || width <= 0 || width > 32 || text.size() > static_cast<size_t>(width) ||
        offset + width > m_written)
        BadParm();
    std::string field(text);
    field.append(kBlanks, static_cast<size_t>(width) - text.size());
    // The field may still sit in the buffer; write what is buffered first so
    // the file holds every byte up to the current position.
    Flush();
    RawPwrite(field.data(), field.size(), offset);
}

void CosOutputFile::Commit() {
    Flush();
    m_fd = -1;
    m_temp->Commit();
    m_committed = true;
}
