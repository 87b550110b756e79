// A plug-in of QEMU's user mode emulators: counts the instructions that the emulated program executes, and writes their
// number to a file when the program ends. The same count for the same program on every machine, whatever the processor.
//
//     qemu-arm -plugin libcount_instructions.so,result=PATH PROGRAM
//
// Debian has no header for plug-ins; what is declared here is all that this one needs of interface version 1. Counts of
// a program with threads are a little low, since the emulator adds to the one counter without a lock.

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

extern "C" {

struct qemu_plugin_tb;  // a block of instructions, translated and run as one

enum qemu_plugin_op
{
    QEMU_PLUGIN_INLINE_ADD_U64
};

std::size_t qemu_plugin_tb_n_insns(qemu_plugin_tb const* block);
void qemu_plugin_register_vcpu_tb_trans_cb(std::uint64_t plugin, void (*hook)(std::uint64_t, qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(qemu_plugin_tb* block, qemu_plugin_op operation, void* counter,
                                              std::uint64_t operand);
void qemu_plugin_register_atexit_cb(std::uint64_t plugin, void (*hook)(std::uint64_t, void*), void* argument);

extern int const qemu_plugin_version;
int qemu_plugin_install(std::uint64_t plugin, void const* target, int argumentCount, char const* const* arguments);

}  // extern "C"

namespace {

std::uint64_t _executed = 0;
std::string _resultFile;

// Each time that the block runs, the emulator itself adds its length: no call, so the program stays nearly as fast.
void CountBlock(std::uint64_t, qemu_plugin_tb* block)
{
    qemu_plugin_register_vcpu_tb_exec_inline(block, QEMU_PLUGIN_INLINE_ADD_U64, &_executed,
                                             qemu_plugin_tb_n_insns(block));
}

void WriteResult(std::uint64_t, void*)
{
    std::FILE* const file = std::fopen(_resultFile.c_str(), "w");
    if (file == nullptr) {
        std::perror(_resultFile.c_str());
        return;
    }
    std::fprintf(file, "%" PRIu64 "\n", _executed);
    std::fclose(file);
}

}  // namespace

int const qemu_plugin_version = 1;

int qemu_plugin_install(std::uint64_t plugin, void const*, int argumentCount, char const* const* arguments)
{
    char const option[] = "result=";
    if (argumentCount != 1 || std::strncmp(arguments[0], option, std::strlen(option)) != 0) {
        std::fputs("usage: -plugin libcount_instructions.so,result=PATH\n", stderr);
        return -1;
    }
    _resultFile = arguments[0] + std::strlen(option);
    qemu_plugin_register_vcpu_tb_trans_cb(plugin, CountBlock);
    qemu_plugin_register_atexit_cb(plugin, WriteResult, nullptr);
    return 0;
}
