// Tables that qimg_bench prints after every benchmark has run, from the rates it collected. A
// benchmark file registers its table with a static:
//
//   const bool registered = register_bench_summary(print_my_table);
#pragma once

#include <map>
#include <string>

// Run name ("qimg_copy32/256/256") -> its "Mpix/s" counter (the median when repeated).
using BenchRates = std::map<std::string, double>;
using BenchSummary = void (*)(const BenchRates& rates);

// Adds `summary` to the tables printed at the end; true.
bool register_bench_summary(BenchSummary summary);
