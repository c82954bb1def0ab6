#include "tests/support/FakeBridge.h"

namespace android {

int AVSyncBridgeFactoryHalHidl::createHwSyncBridge(unsigned int kind, unsigned int hwSyncId,
                                                   sp<BridgeHalHidl>& bridge) {
    FakeBridge::sAsked = {kind, hwSyncId};
    if (FakeBridge::sRefusal == 0) {
        FakeBridge::sLast = new FakeBridge(hwSyncId);
        bridge = FakeBridge::sLast.get();
    }
    return FakeBridge::sRefusal;
}

}  // namespace android
