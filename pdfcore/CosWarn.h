// Warnings of the PDF core: damage that the core mended on its own (a
// rebuilt cross-reference table, a page tree put right).  They travel on the
// same warning channel as the stream filters' and end up on the log's
// Warning channel.
#pragma once

// printf-style; the text gets the prefix "Warning: " and a line end.
void CosWarn(const char* format, ...) __attribute__((format(printf, 1, 2)));
