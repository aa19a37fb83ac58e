#include "diff/Tolerance.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace ZolDiff {

namespace {

// Floats in the order of their values, +0 and -0 alike.
int64_t OrderedBits(float v) {
    const auto bits = std::bit_cast<uint32_t>(v);
    const auto magnitude = static_cast<int64_t>(bits & 0x7FFFFFFFu);
    return (bits & 0x80000000u) != 0 ? -magnitude : magnitude;
}

}  // namespace

uint64_t UlpDistance(float a, float b) {
    const int64_t d = OrderedBits(a) - OrderedBits(b);
    return static_cast<uint64_t>(d < 0 ? -d : d);
}

bool Passes(float a, float b, const Tolerance& tolerance) {
    if (a == b) return true;
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    if (std::isinf(a) || std::isinf(b)) return false;
    const double x = a, y = b;
    const double limit =
        std::max(tolerance.atol, tolerance.rtol * std::max(std::fabs(x), std::fabs(y)));
    if (std::fabs(x - y) <= limit) return true;
    return tolerance.ulps != 0 && UlpDistance(a, b) <= tolerance.ulps;
}

double RelativeDifference(double a, double b) {
    if (a == b) return 0;
    const double scale = std::max(std::fabs(a), std::fabs(b));
    if (!std::isfinite(scale) || std::isnan(a) || std::isnan(b)) return INFINITY;
    return std::fabs(a - b) / scale;
}

Tolerance PartialTolerance::Over(const Tolerance& defaults) const {
    return {atol.value_or(defaults.atol), rtol.value_or(defaults.rtol),
            ulps.value_or(defaults.ulps)};
}

std::optional<double> ParseLimit(const std::string& text) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || !std::isfinite(value) || value < 0) return std::nullopt;
    return value;
}

std::optional<uint64_t> ParseCount(const std::string& text) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0') return std::nullopt;
    return value;
}

std::optional<PartialTolerance> ParseTolerance(const std::string& text, std::string& error) {
    PartialTolerance parsed;
    size_t start = 0;
    while (true) {
        const size_t comma = std::min(text.find(',', start), text.size());
        const std::string field = text.substr(start, comma - start);
        const size_t colon = field.find(':');
        const std::string key = field.substr(0, colon);
        const std::string value = colon == std::string::npos ? "" : field.substr(colon + 1);
        bool repeated = false, good = colon != std::string::npos;
        if (key == "atol" || key == "rtol") {
            std::optional<double>& slot = key == "atol" ? parsed.atol : parsed.rtol;
            repeated = slot.has_value();
            slot = ParseLimit(value);
            good = good && slot.has_value();
        } else if (key == "ulps") {
            repeated = parsed.ulps.has_value();
            parsed.ulps = ParseCount(value);
            good = good && parsed.ulps.has_value();
        } else {
            error = "unknown tolerance \"" + key + "\" (atol, rtol or ulps)";
            return std::nullopt;
        }
        if (repeated) {
            error = key + " given twice";
            return std::nullopt;
        }
        if (!good) {
            error = "bad value for " + key + ": \"" + value + "\"";
            return std::nullopt;
        }
        if (comma == text.size()) break;
        start = comma + 1;
    }
    return parsed;
}

}  // namespace ZolDiff
