#include "kernel.h"

#if defined(__x86_64__)
asm(R"(
    .pushsection .text
    .globl extprop_kernel_call
    .type extprop_kernel_call, @function
extprop_kernel_call:
    .cfi_startproc
    movq %rdi, %rax
    movq %rsi, %rdi
    movq %rdx, %rsi
    movq %rcx, %rdx
    movq %r8, %r10
    movq %r9, %r8
    movq 8(%rsp), %r9
    syscall
    .globl extprop_kernel_call_made
extprop_kernel_call_made:
    ret
    .cfi_endproc
    .size extprop_kernel_call, . - extprop_kernel_call
    .popsection
)");
#elif defined(__aarch64__)
asm(R"(
    .pushsection .text
    .globl extprop_kernel_call
    .type extprop_kernel_call, %function
extprop_kernel_call:
    .cfi_startproc
    mov x8, x0
    mov x0, x1
    mov x1, x2
    mov x2, x3
    mov x3, x4
    mov x4, x5
    mov x5, x6
    svc #0
    .globl extprop_kernel_call_made
extprop_kernel_call_made:
    ret
    .cfi_endproc
    .size extprop_kernel_call, . - extprop_kernel_call
    .popsection
)");
#else
#error "system calls of this architecture are not known here"
#endif
