#pragma once

#include <map>
#include <string>
#include <vector>

namespace android {

/** A report as a strict reader of XML sees it. */
class ReportDocument {
public:
    struct Element {
        std::string name;
        std::map<std::string, std::string> attributes;
        std::string text;     // of it and of those inside
        std::string heading;  // of the section that it stands in
        std::string strip;    // the kind of plot that it stands in
    };

    explicit ReportDocument(const std::string& path);

    /** Where it is no XML, and why; empty: nowhere. */
    const std::string& fault() const { return mFault; }
    const std::string& bytes() const { return mBytes; }
    const std::vector<Element>& elements() const { return mElements; }
    /** The value of a figure; empty: there is none. */
    std::string figure(const std::string& name) const;
    /** Those of a class, in a strip below a heading. */
    std::vector<Element> find(const std::string& heading, const std::string& strip,
                              const std::string& styleClass) const;
    /** The highest and the lowest point of a range's outline at `share` of the width, in
     *  thousandths of the height from the top. */
    struct Extent {
        double top;
        double bottom;
    };
    static Extent extentAt(const std::string& outline, double share);

private:
    void begin(const char* name, const char** attributes);
    void end();

    std::string mBytes;
    std::string mFault;
    std::vector<Element> mElements;
    std::vector<size_t> mOpen;
    std::string mHeading;
};

}  // namespace android
