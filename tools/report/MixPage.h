#pragma once

#include <string>
#include <vector>

#include "tools/chart/ReportPage.h"
#include "tools/mix/MixLevels.h"
#include "tools/mix/MixOutput.h"
#include "tools/mix/MixRecorder.h"
#include "tools/mix/MixSession.h"

namespace android {

/** The report of a mix, when it is over. */
class MixPage {
public:
    /** `output` names where the mix went. */
    MixPage(const MixSession& session, const std::vector<MixInput*>& inputs,
            const MixRecorder& recorder, const MixOutput& mix, const MixLevels& levels,
            const std::string& output, uint32_t rateHz);

    const ReportPage& page() const { return mPage; }

private:
    void addFigures(const MixOutput& mix);
    void addInputFigures();
    void addOverload();
    void addMix();
    void addInput(size_t index);
    std::string states(size_t index) const;
    std::string fill(size_t index) const;
    double audioEndSec(size_t index) const;

    const MixSession& mSession;
    const std::vector<MixInput*>& mInputs;
    const MixRecorder& mRecorder;
    const MixLevels& mLevels;
    const uint32_t mRateHz;
    const TimeAxis mAxis;
    ReportPage mPage;
};

}  // namespace android
