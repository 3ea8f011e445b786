// The caller's text of a log line. Formatting is most of what a line costs its caller, and the C library's formatter
// most of that, although few lines have more than "%d" and "%s" in them. Those are printed here; all else, widths,
// flags, floating point and what the platform adds, is left to the C library, from the beginning.
#include "log/log_text.h"

#include <cstdio>

#include "log/printer.h"

using vyx_inter::Printer;

namespace {

// A va_list in a record, so that functions can take it by reference: where it is an array, it cannot be passed so.
struct Arguments {
    va_list list;
};

// The integer types that a conversion may name.
enum class Width : uint8_t { Int, Long, LongLong, Size };

// Reads "l", "ll" or "z". Result: behind it.
const char *ReadWidth_Local(const char *p, Width *pWidth) {
    *pWidth = Width::Int;
    if (*p == 'z') {
        *pWidth = Width::Size;
        return p + 1;
    }
    if (*p != 'l')
        return p;
    *pWidth = p[1] == 'l' ? Width::LongLong : Width::Long;
    return p[1] == 'l' ? p + 2 : p + 1;
}

void PutSigned_Local(Printer &printer, Width eWidth, Arguments &arguments) {
    switch (eWidth) {
    case Width::Int:
        return printer.PutNumber(va_arg(arguments.list, int));
    case Width::Long:
        return printer.PutNumber(va_arg(arguments.list, long));
    case Width::LongLong:
        return printer.PutNumber(va_arg(arguments.list, long long));
    case Width::Size:
        return printer.PutNumber(va_arg(arguments.list, ptrdiff_t));
    }
}

void PutUnsigned_Local(Printer &printer, Width eWidth, int iBase, Arguments &arguments) {
    switch (eWidth) {
    case Width::Int:
        return printer.PutNumber(va_arg(arguments.list, unsigned), iBase);
    case Width::Long:
        return printer.PutNumber(va_arg(arguments.list, unsigned long), iBase);
    case Width::LongLong:
        return printer.PutNumber(va_arg(arguments.list, unsigned long long), iBase);
    case Width::Size:
        return printer.PutNumber(va_arg(arguments.list, size_t), iBase);
    }
}

// "%s" and "%c", which have other meanings with a width. Result: false for those.
bool PutText_Local(Printer &printer, char cType, Width eWidth, Arguments &arguments) {
    if (eWidth != Width::Int)
        return false;
    if (cType == 'c') {
        const auto cValue = static_cast<char>(va_arg(arguments.list, int));
        printer.Put(&cValue, 1);
        return true;
    }
    const char *szText = va_arg(arguments.list, const char *);
    if (szText == nullptr)
        return false; // the C library's business
    printer.Put(szText);
    return true;
}

// Prints the conversion that follows a '%'. Result: behind it; null if it is not a plain one.
const char *PutConversion_Local(Printer &printer, const char *p, Arguments &arguments) {
    Width eWidth;
    p = ReadWidth_Local(p, &eWidth);
    switch (*p) {
    case 'd':
    case 'i':
        PutSigned_Local(printer, eWidth, arguments);
        return p + 1;
    case 'u':
        PutUnsigned_Local(printer, eWidth, 10, arguments);
        return p + 1;
    case 'x':
        PutUnsigned_Local(printer, eWidth, 16, arguments);
        return p + 1;
    case 's':
    case 'c':
        return PutText_Local(printer, *p, eWidth, arguments) ? p + 1 : nullptr;
    default:
        return nullptr;
    }
}

// Result: false if there is anything but plain conversions.
bool PutAll_Local(Printer &printer, const char *szFormat, Arguments &arguments) {
    const char *p = szFormat;
    for (const char *pPercent = std::strchr(p, '%'); pPercent != nullptr; pPercent = std::strchr(p, '%')) {
        printer.Put(p, static_cast<size_t>(pPercent - p));
        p = PutConversion_Local(printer, pPercent + 1, arguments);
        if (p == nullptr)
            return false;
    }
    printer.Put(p);
    return true;
}

} // namespace

int32_t VYX_LogText_Inter(char *szBuf, size_t nSize, const char *szFormat, va_list args) {
    Printer printer(szBuf, nSize);
    Arguments arguments;
    va_copy(arguments.list, args);
    const bool bAll = PutAll_Local(printer, szFormat, arguments);
    va_end(arguments.list);
    const int32_t iLength = bAll ? printer.Finish() : -1;
    // Also for a text whose length an int cannot hold: the C library says why.
    return iLength >= 0 ? iLength : std::vsnprintf(szBuf, nSize, szFormat, args);
}
