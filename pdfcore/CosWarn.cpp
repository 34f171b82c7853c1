#include "pdfcore/CosWarn.h"

#include <cstdarg>
#include <cstdio>
#include <string>

#include "filters/Filters.h"

void CosWarn(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    filters::Warn(std::string("Warning: ") + text + "\n");
}
