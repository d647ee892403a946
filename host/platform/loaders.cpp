// Wraps the library's two functions that read property files, so that an observer sees what each
// load reads, into which map and for which import, as it happens. The dynamic linker takes the
// first definition of a name, and everything here links this library first; so the library's calls
// of its own functions, the recursion for imports included, reach these wrappers too.

#include <dlfcn.h>
#include <stdlib.h>

#include "platform.h"
#include "utils.h"

namespace {

// Returns the library's definition of the function with the mangled name.
template <typename Function>
Function* Next(const char* name) {
    void* next = dlsym(RTLD_NEXT, name);
    if (next == nullptr) abort();  // nothing here runs without the library
    return reinterpret_cast<Function*>(next);
}

}  // namespace

bool load_properties_from_file_without_se(const char* filename, const char* filter,
                                          android::init::PropertyMap* properties) {
    static auto* const next = Next<decltype(load_properties_from_file_without_se)>(
            "_Z36load_properties_from_file_without_sePKcS0_PSt3mapINSt7__cxx1112basic_stringIcSt11"
            "char_traitsIcESaIcEEES7_St4lessIS7_ESaISt4pairIKS7_S7_EEE");
    platform::Observer* const observer = platform::CurrentObserver();
    if (observer != nullptr) observer->OnLoad(filename, filter, properties);
    const bool loaded = next(filename, filter, properties);
    if (observer != nullptr) observer->OnLoaded(properties, loaded);
    return loaded;
}

std::string load_property_from_file(const char* path, const char* name) {
    static auto* const next =
            Next<decltype(load_property_from_file)>("_Z23load_property_from_fileB5cxx11PKcS0_");
    std::string value = next(path, name);
    if (auto* observer = platform::CurrentObserver()) observer->OnLookUp(path, name);
    return value;
}
