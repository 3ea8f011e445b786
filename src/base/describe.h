// The library's description of its own registries, for tools that read the memory of a running process, or of a dead one,
// without its help.
//
// Each source file that has a registry has a table of rows, which the compiler fills in, so that it is true for this very
// library: where the registry is, how large its records are, and where in a record a field is. An ELF note for each table
// (owner "VYX", type 1, in .note.vyx) says where the table is: one 32-bit word, the distance from itself
// to the table. Stripping leaves all that. The tables are in memory that the loader writes, which is in every core. On Darwin
// the tables themselves are the section __vyx of the segment __DATA.
//
// The names are what tools know; fields may move and change their C++ names without their notice. A name that goes, or
// means something else, makes a new format. What guards a record tells whether it changed while it was read:
// see "lock.taken".
#ifndef VYX_BASE_DESCRIBE_H
#define VYX_BASE_DESCRIBE_H

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace vyx_inter {

constexpr uint32_t kDescriptionFormat = 1;

// One row: "pool" is a registry, "pool.items" a field of its records, "lock:Timers" a lock that exists once,
// "rank:Timers" a rank.
struct DescriptionRow {
    char szName[28];
    uint32_t nOffset;     // a field's place in its record, bytes; a rank's number
    uint32_t nSize;       // bytes of the field, or of a registry's record; a rank's level
    uint32_t nCount;      // a registry's records, one after the other; 0 for all else
    const void *pAddress; // a registry or a lock; null for all else
};

template <size_t kRows>
struct DescriptionTable {
    uint32_t nFormat;   // kDescriptionFormat
    uint32_t nWordSize; // bytes of a pointer
    uint32_t nRowSize;  // bytes
    uint32_t nRows;
    // The address of this table. A reader that finds the table at another address, as in an emulator's memory, has to
    // correct all pointers by the difference.
    const void *pSelf;
    DescriptionRow rows[kRows];
};

template <size_t kRows>
constexpr DescriptionTable<kRows> Describe(const void *pSelf, const DescriptionRow (&rows)[kRows]) {
    DescriptionTable<kRows> table = {
        kDescriptionFormat, sizeof(void *), sizeof(DescriptionRow), kRows, pSelf, {}};
    for (size_t i = 0; i < kRows; ++i)
        table.rows[i] = rows[i];
    return table;
}

// As sizeof, also of a pointer.
template <class T>
constexpr size_t kSizeOf = sizeof(T);

} // namespace vyx_inter

// Rows. A registry is an array or a single object; a field may be one of a field.
#define VYX_REGISTRY(name, array)                                                                            \
    { name, 0, sizeof(*(array)), std::size(array), array }
#define VYX_SINGLE(name, object)                                                                             \
    { name, 0, vyx_inter::kSizeOf<decltype(object)>, 1, &(object) }
#define VYX_FIELD(name, record, field)                                                                       \
    { name, offsetof(record, field), vyx_inter::kSizeOf<decltype(record::field)>, 0, nullptr }
#define VYX_FIELD_OF(name, record, field, inner, of)                                                         \
    {                                                                                                        \
        name, offsetof(record, field) + offsetof(inner, of), vyx_inter::kSizeOf<decltype(inner::of)>, 0,     \
            nullptr                                                                                          \
    }
#define VYX_LOCK(rank, lock)                                                                                 \
    { "lock:" rank, 0, sizeof(lock), 0, &(lock) }

// Makes a file's rows part of the description. `name` is unique in the library.
#define VYX_DESCRIBE(name, rows)                                                                             \
    extern "C" {                                                                                             \
    extern const vyx_inter::DescriptionTable<std::size(rows)> vyx_description_##name;                        \
    VYX_IN_DESCRIPTION const vyx_inter::DescriptionTable<std::size(rows)> vyx_description_##name =           \
        vyx_inter::Describe(&vyx_description_##name, rows);                                                  \
    }                                                                                                        \
    VYX_DESCRIPTION_NOTE(name)

#if defined(__ELF__)
#define VYX_IN_DESCRIPTION __attribute__((used))
// Size of owner, size of content, type, owner; then the content.
#define VYX_DESCRIPTION_NOTE(name)                                                                           \
    __asm__(".pushsection .note.vyx,\"a\",%note\n"                                                           \
            ".balign 4\n"                                                                                    \
            ".long 4, 4, 1\n"                                                                                \
            ".asciz \"VYX\"\n"                                                                               \
            ".long vyx_description_" #name " - .\n"                                                          \
            ".popsection\n");
#else
#define VYX_IN_DESCRIPTION __attribute__((used, section("__DATA,__vyx")))
#define VYX_DESCRIPTION_NOTE(name)
#endif

#endif
