#include "counts.h"

#include <algorithm>

namespace logmill {

void Counts::Add(const Batch &batch) {
    for (std::string_view rest = batch.text; !rest.empty();) {
        const size_t feed = rest.find('\n');
        const std::string_view line = rest.substr(0, feed == std::string_view::npos ? feed : feed + 1);
        rest.remove_prefix(line.size());
        AddLine(line, rest.empty() ? batch.skipped : 0);
    }
}

void Counts::AddLine(std::string_view line, uint64_t skipped) {
    ++lines;
    bytes += line.size() + skipped;
    const std::string_view text = WithoutEnd(line);
    longest = std::max(longest, text.size() + skipped);
    cut += skipped != 0 ? 1 : 0;
    ++levels[static_cast<size_t>(FindLevel(text))];
    const std::string_view field = FirstField(text);
    if (field.empty())
        ++blank;
    else
        AddField(field.substr(0, kFieldBytes), 1);
}

void Counts::AddField(std::string_view field, uint64_t count) {
    if (m_last == fields.end() || m_last->first != field) {
        m_last = fields.find(field);
        if (m_last == fields.end() && fields.size() < kMaxFields)
            m_last = fields.emplace(field, 0).first;
    }
    (m_last != fields.end() ? m_last->second : otherFields) += count;
}

void Counts::Merge(const Counts &other) {
    lines += other.lines;
    bytes += other.bytes;
    blank += other.blank;
    cut += other.cut;
    longest = std::max(longest, other.longest);
    for (size_t level = 0; level < kLevels; ++level)
        levels[level] += other.levels[level];
    for (const auto &[field, count] : other.fields)
        AddField(field, count);
    otherFields += other.otherFields;
}

} // namespace logmill
