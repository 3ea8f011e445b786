#include <boost/unordered_map.hpp>

#include "container_bench.h"

namespace {

using BoostText = MapTable<const char *, boost::unordered_map<const char *, void *, TextHash, TextEqual>>;
using BoostInt = MapTable<uint32_t, boost::unordered_map<uint32_t, void *>>;

const int kText = RegisterTable<BoostText, const char *>("boost");
const int kInt = RegisterTable<BoostInt, uint32_t>("boost");

} // namespace
