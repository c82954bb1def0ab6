// Loads the platform's library as the library's own loader does, and unloads it.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <string>

namespace {

TEST(PlatformUnload, FreesThePropertiesWithTheLibrary) {
#ifdef STREAMPROXY_LIBRARIES_STAY
    GTEST_SKIP() << "a sanitizer's run time keeps what it has seen";
#endif
    constexpr size_t kPropertyCount = 500;
    size_t before = 0;
    for (int round = 0; round < 5; ++round) {
        void* const library = dlopen(STREAMPROXY_PLATFORM_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, library) << dlerror();
        using Set = int (*)(const char*, const char*);
        const auto set = reinterpret_cast<Set>(dlsym(library, "property_set"));
        ASSERT_NE(nullptr, set);
        for (size_t i = 0; i < kPropertyCount; ++i) {
            set(("test.key." + std::to_string(i)).c_str(), "a value");
        }
        ASSERT_EQ(0, dlclose(library));
        // After the first round: the loader keeps a little, in some builds the whole library.
        before = round == 0 ? mallinfo2().uordblks : before;
        EXPECT_LT(mallinfo2().uordblks, before + kPropertyCount * 10);
    }
}

}  // namespace
