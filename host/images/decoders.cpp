#include "decoders.h"

#include <dlfcn.h>
#include <unistd.h>

namespace images {

namespace {

constexpr char kLibrary[] = "libextprop_decoders.so";

void Serve(const char* name, const Descriptors& descriptors, char slot) {
    void* library = dlopen(kLibrary, RTLD_NOW);
    void* function = library == nullptr ? nullptr : dlsym(library, name);
    if (function == nullptr) _exit(kNotLoaded);
    reinterpret_cast<ServeFunction*>(function)(descriptors, slot);
}

}  // namespace

void ServeImage(const Descriptors& descriptors, char slot) {
    Serve("extprop_serve_image", descriptors, slot);
}

void ServeTexts(const Descriptors& descriptors, char slot) {
    Serve("extprop_serve_texts", descriptors, slot);
}

std::string WhyNotServed(int exit_status) {
    switch (exit_status) {
        case kNotConfined:
            return "the reading process cannot give up its rights";
        case kNotLoaded:
            return std::string(kLibrary) + " cannot be loaded";
        default:
            return "";
    }
}

}  // namespace images
