// A program that does nothing in a sandbox: what each run of the tool cannot be without.

#include "sandbox.h"

int main(int, char** argv) {
    const sandbox::Sandbox root(argv[1]);
    return root.Run([] { return 0; }).ok() ? 0 : 1;
}
