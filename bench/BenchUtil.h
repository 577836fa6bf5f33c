#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double microsecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

inline void report(const char* what, double subject, const char* baselineName, double baseline,
                   const char* unit)
{
    std::printf("%-34s %10.1f %s   %-22s %10.1f %s   ratio %.3f\n", what, subject, unit,
                baselineName, baseline, unit, subject / baseline);
}

} // namespace bench
