#pragma once
// When two values count as equal: within an absolute or a relative tolerance (whichever is
// larger), or within a number of units in the last place.
#include <cstdint>
#include <optional>
#include <string>

namespace ZolDiff {

struct Tolerance {
    double atol = 0;
    double rtol = 0;
    uint64_t ulps = 0;
};

// |a - b| <= max(atol, rtol * max(|a|, |b|)), or at most `ulps` floats apart. NaN equals any
// NaN; an infinity equals only the same infinity.
bool Passes(float a, float b, const Tolerance& tolerance);

// How many representable floats lie between a and b (both finite): 0 for +0 and -0.
uint64_t UlpDistance(float a, float b);

// |a - b| / max(|a|, |b|); 0 when both are 0, infinite when either is not finite and they
// differ.
double RelativeDifference(double a, double b);

// A tolerance given as "rtol:1e-6,atol:1e-9,ulps:4": each key at most once, any subset of
// the three. Keys left out stay unset, so that they take the defaults.
struct PartialTolerance {
    std::optional<double> atol, rtol;
    std::optional<uint64_t> ulps;

    Tolerance Over(const Tolerance& defaults) const;
};

// Parses the text; on failure returns nothing and sets `error` to one line saying why.
std::optional<PartialTolerance> ParseTolerance(const std::string& text, std::string& error);

// A tolerance value: a finite decimal number, not negative, nothing behind it.
std::optional<double> ParseLimit(const std::string& text);
// A whole number of ulps.
std::optional<uint64_t> ParseCount(const std::string& text);

}  // namespace ZolDiff
