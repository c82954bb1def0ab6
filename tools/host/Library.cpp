#include "tools/host/Library.h"

#include <dlfcn.h>

#include <filesystem>

#include "tools/process/ToolError.h"

namespace android {

namespace {

// The soname: the name without a version is there only for those who build hosts, and may lead to
// another version's functions.
constexpr const char* kFileName = STREAMPROXY_LIBRARY_FILE;

std::string besideProgram() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        return kFileName;
    }
    const auto candidate = program.parent_path().parent_path() / "lib" / kFileName;
    return std::filesystem::exists(candidate, error) ? candidate.string() : kFileName;
}

void* openObject(const std::string& path) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        throw ToolError("can't load the library: " + std::string(dlerror()) +
                        "; name it with --library");
    }
    return handle;
}

}  // namespace

Library::Library(const std::string& path)
    : mPath(path.empty() ? besideProgram() : path), mHandle(openObject(mPath)) {}

Library::~Library() {
    dlclose(mHandle);
}

std::string Library::file() const {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(createPipeline), &info) == 0 || info.dli_fname == nullptr) {
        return mPath;
    }
    std::error_code error;
    const auto file = std::filesystem::canonical(info.dli_fname, error);
    return error ? info.dli_fname : file.string();
}

std::string Library::version() const {
    const std::string name = std::filesystem::path(file()).filename().string();
    const std::string suffix = ".so.";
    const size_t at = name.find(suffix);
    return at != std::string::npos ? name.substr(at + suffix.size()) : "unknown";
}

void* Library::symbol(const char* name) const {
    void* address = dlsym(mHandle, name);
    if (!address) {
        dlclose(mHandle);  // the destructor does not run for a library that is not whole
        throw ToolError(mPath + ": has no function " + name +
                        "; name another library with --library");
    }
    return address;
}

}  // namespace android
