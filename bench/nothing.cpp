// A program that does nothing in a sandbox: the least that any run of the tool takes.

#include "sandbox.h"

int main(int, char** argv) {
    const sandbox::Sandbox root(argv[1]);
    return root.Run([] { return 0; }).ok() ? 0 : 1;
}
