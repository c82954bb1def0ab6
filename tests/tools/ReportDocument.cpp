#include "tests/tools/ReportDocument.h"

#include <expat.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>

namespace android {

ReportDocument::ReportDocument(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    mBytes.assign(std::istreambuf_iterator<char>(file), {});
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
        XML_ParserCreate("UTF-8"), &XML_ParserFree);
    XML_SetUserData(parser.get(), this);
    XML_SetElementHandler(
        parser.get(),
        [](void* self, const char* name, const char** attributes) {
            static_cast<ReportDocument*>(self)->begin(name, attributes);
        },
        [](void* self, const char* /*name*/) { static_cast<ReportDocument*>(self)->end(); });
    XML_SetCharacterDataHandler(parser.get(), [](void* self, const char* text, int length) {
        auto* document = static_cast<ReportDocument*>(self);
        for (const size_t index : document->mOpen) {
            document->mElements[index].text.append(text, static_cast<size_t>(length));
        }
    });
    if (XML_Parse(parser.get(), mBytes.data(), static_cast<int>(mBytes.size()), 1) == 0) {
        mFault = std::string(XML_ErrorString(XML_GetErrorCode(parser.get()))) + " in line " +
                 std::to_string(XML_GetCurrentLineNumber(parser.get()));
    }
}

void ReportDocument::begin(const char* name, const char** attributes) {
    Element element{.name = name, .attributes = {}, .text = {}, .heading = mHeading, .strip = {}};
    for (; *attributes != nullptr; attributes += 2) {
        element.attributes[attributes[0]] = attributes[1];
    }
    element.strip = element.attributes.count("data-kind") > 0 ? element.attributes["data-kind"]
                    : !mOpen.empty()                          ? mElements[mOpen.back()].strip
                                                              : "";
    mOpen.push_back(mElements.size());
    mElements.push_back(std::move(element));
}

void ReportDocument::end() {
    if (mElements[mOpen.back()].name == "h2") {
        mHeading = mElements[mOpen.back()].text;
    }
    mOpen.pop_back();
}

std::string ReportDocument::figure(const std::string& name) const {
    const auto term = std::find_if(mElements.begin(), mElements.end(), [&](const Element& element) {
        return element.name == "dt" && element.text == name;
    });
    return term == mElements.end() ? "" : std::next(term)->text;
}

std::vector<ReportDocument::Element> ReportDocument::find(const std::string& heading,
                                                          const std::string& strip,
                                                          const std::string& styleClass) const {
    std::vector<Element> found;
    std::copy_if(mElements.begin(), mElements.end(), std::back_inserter(found),
                 [&](const Element& element) {
                     const auto classes = element.attributes.find("class");
                     return element.heading == heading && element.strip == strip &&
                            classes != element.attributes.end() && classes->second == styleClass;
                 });
    return found;
}

ReportDocument::Extent ReportDocument::extentAt(const std::string& outline, double share) {
    constexpr double kWidth = 1000;
    Extent extent{.top = -1, .bottom = -1};
    std::istringstream steps(outline);
    double x = 0;
    double y = 0;
    for (char step = 0; steps >> step;) {
        double length = 0;
        switch (step) {
            case 'M':
                steps >> x >> y;
                break;
            case 'V':
                steps >> y;
                break;
            case 'h':
                steps >> length;
                if (std::min(x, x + length) <= share * kWidth &&
                    share * kWidth < std::max(x, x + length)) {
                    (length > 0 ? extent.top : extent.bottom) = y;
                }
                x += length;
                break;
            default:
                break;
        }
    }
    return extent;
}

}  // namespace android
