#include "boot/call_chain.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>
#include <stdlib.h>

#include <algorithm>
#include <unordered_map>

#include <android-base/strings.h>

namespace extprop {

namespace {

// Returns the name of the library's function whose code is at `address`, or "".
std::string LibraryFunction(void* address) {
    Dl_info place;
    void* entry = nullptr;
    if (dladdr1(address, &place, &entry, RTLD_DL_SYMENT) == 0 || entry == nullptr) return "";
    const auto* symbol = static_cast<const ElfW(Sym)*>(entry);
    const auto offset = static_cast<char*>(address) - static_cast<char*>(place.dli_saddr);
    if (!android::base::EndsWith(place.dli_fname, kLibrary) ||
        offset >= static_cast<ptrdiff_t>(symbol->st_size)) {
        return "";
    }
    int status = 0;
    char* demangled = abi::__cxa_demangle(place.dli_sname, nullptr, nullptr, &status);
    std::string name = status == 0 ? demangled : place.dli_sname;
    free(demangled);
    name.erase(std::min(name.find_first_of("([", 1), name.size()));  // arguments and ABI tags
    // Functions in any other namespace than the library's and the global one come from the standard
    // library.
    const bool is_own = android::base::StartsWith(name, "android::init::") ||
                        name.find_first_of(":<") == std::string::npos;
    return is_own ? name.substr(name.rfind(':') + 1) : "";
}

}  // namespace

std::vector<std::string> CallChain() {
    // More than the library's nested operations take. Loads by imports nest deeper, but no call
    // chain is taken for them.
    constexpr int kMaxFrames = 64;
    static thread_local std::unordered_map<void*, std::string> names;
    void* frames[kMaxFrames];
    std::vector<std::string> functions;
    const int count = backtrace(frames, kMaxFrames);
    for (int i = 0; i < count; ++i) {
        const auto [known, is_new] = names.try_emplace(frames[i]);
        // A return address may already belong to the function after the caller.
        if (is_new) known->second = LibraryFunction(static_cast<char*>(frames[i]) - 1);
        const std::string& name = known->second;
        if (!name.empty() && (functions.empty() || functions.back() != name)) {
            functions.push_back(name);
        }
    }
    return functions;
}

}  // namespace extprop
