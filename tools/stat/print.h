#ifndef VYX_STAT_PRINT_H_
#define VYX_STAT_PRINT_H_

#include "tables.h"

namespace inspect {

// For people; what is not known is "?", what does not apply "-".
std::string ToText(const Report &report);
// An array with an object for each process; both are null.
std::string ToJson(const std::vector<Report> &reports);
// The text format of Prometheus; both are left out.
std::string ToPrometheus(const std::vector<Report> &reports);

} // namespace inspect

#endif
