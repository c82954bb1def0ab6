// main() of a program whose tests run in virtual time, each step on any of the ready threads.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "virtualtime/VirtualMachine.h"

/** `[SEED]` chooses the schedule; 1 without. With --gtest_repeat=N each round has another. */
int main(int argc, char** argv) {
    std::string command;
    for (int i = 0; i < argc; ++i) {
        command += (i > 0 ? " " : "") + std::string(argv[i]);
    }
    testing::InitGoogleTest(&argc, argv);
    const android::VirtualMachine::Config config = {
        .seed = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1,
        .order = android::VirtualMachine::Order::UNIFORM,
        .maxStepCostNs = 100,
        .spuriousRate = 1000,
        .repeatCommand = command};
    int status = 0;
    android::VirtualMachine::run(config, [&status] { status = RUN_ALL_TESTS(); });
    return status;
}
