// The class that forwards to the C library.
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <vyx/string.h>

namespace vyx {

int vyx_string::atoi(const char *s) {
    return ::atoi(s);
}
char *vyx_string::itoa(char *out, int value, int radix) {
    return VYX_Itoa(out, value, static_cast<uint32_t>(radix));
}
char *vyx_string::strcpy(char *d, const char *s) {
    return ::strcpy(d, s);
}
char *vyx_string::strncpy(char *d, const char *s, int n) {
    return ::strncpy(d, s, static_cast<size_t>(n));
}
char *vyx_string::strcat(char *d, char *s) {
    return ::strcat(d, s);
}
size_t vyx_string::strlen(const char *s) {
    return ::strlen(s);
}
int vyx_string::strcmp(const char *a, const char *b) {
    return ::strcmp(a, b);
}
int vyx_string::strcasecmp(const char *a, const char *b) {
    return ::strcasecmp(a, b);
}
int vyx_string::strncasecmp(const char *a, const char *b, int n) {
    return ::strncasecmp(a, b, static_cast<size_t>(n));
}
char *vyx_string::strchr(const char *s, char c) {
    return const_cast<char *>(::strchr(s, c));
}
char *vyx_string::strrchr(const char *s, char c) {
    return const_cast<char *>(::strrchr(s, c));
}
char *vyx_string::strstr(const char *s, const char *needle) {
    return const_cast<char *>(::strstr(s, needle));
}

} // namespace vyx
