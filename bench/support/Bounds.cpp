#include "bench/support/Bounds.h"

#include <cstdio>
#include <cstdlib>

namespace {

double slack() {
    const char* const text = getenv("STREAMPROXY_BENCH_SLACK");
    return text != nullptr ? strtod(text, nullptr) : 1;
}

}  // namespace

bool Bounds::sBroken = false;

// Written so that NaN breaks its bound.
void Bounds::atMost(const std::string& name, double value, double bound) {
    mState.counters[name] = value;
    if (!(value <= bound)) {
        report(name, value, "above", bound);
    }
}

void Bounds::atLeast(const std::string& name, double value, double bound) {
    mState.counters[name] = value;
    if (!(value >= bound)) {
        report(name, value, "below", bound);
    }
}

void Bounds::timeAtMost(const std::string& name, double value, double bound) {
    atMost(name, value, bound * slack());
}

void Bounds::breakOne(const std::string& what) {
    sBroken = true;
    fprintf(stderr, "%s\n", what.c_str());
}

void Bounds::report(const std::string& name, double value, const char* relation, double bound) {
    breakOne(mBenchmark + ": " + name + " is " + std::to_string(value) + ", " + relation +
             " its bound of " + std::to_string(bound));
}
