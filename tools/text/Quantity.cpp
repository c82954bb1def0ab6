#include "tools/text/Quantity.h"

#include <cmath>
#include <cstdlib>

namespace android {

Quantity quantityOf(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    std::string unit = end;
    unit.erase(0, unit.find_first_not_of(' '));
    const bool isNumber = end != text.c_str() && std::isfinite(value);
    return {.value = isNumber ? value : std::nan(""), .unit = unit};
}

}  // namespace android
