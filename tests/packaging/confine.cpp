// Runs the service as its unit confines it, as far as that can be done without the service manager:
// the calls to the kernel, the families of sockets, no memory that is both written and run, no new
// rights, and, for root, a tree in which all but the unit's own paths is read-only.
//
// The environment names the unit (CONFINED_UNIT) and the program (CONFINED_PROGRAM); the unit's
// paths lie below QUEUE_ROOT. systemd-analyze says which calls a set of the unit's has.

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <map>
#include <sched.h>
#include <set>
#include <sstream>
#include <string>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

[[noreturn]] void fail(const std::string &what)
{
    std::fprintf(stderr, "confine: %s: %s\n", what.c_str(), std::strerror(errno));
    std::exit(99);
}

std::string variable(const char *name)
{
    const char *value = std::getenv(name);
    if (!value)
        fail(name);
    return value;
}

std::vector<std::string> words(const std::string &text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

/// The entries of the unit's section [Service]; a name that comes again adds to what it had.
std::map<std::string, std::string> readUnit(const std::string &path)
{
    std::map<std::string, std::string> result;
    std::ifstream file(path);
    if (!file)
        fail(path);
    for (std::string line; std::getline(file, line);) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos && line[0] != '#')
            result[line.substr(0, equals)] += line.substr(equals + 1) + ' ';
    }
    return result;
}

/// The calls of a set such as @system-service, those of its sets included.
void addCalls(const std::string &name, std::set<std::string> &calls)
{
    if (name[0] != '@') {
        calls.insert(name);
        return;
    }
    FILE *tool = popen(
        ("PATH=/usr/bin:/bin systemd-analyze --no-pager syscall-filter " + name).c_str(), "r");
    if (!tool)
        fail("systemd-analyze");
    std::vector<std::string> lines;
    char line[256];
    while (std::fgets(line, sizeof line, tool))
        lines.emplace_back(line);
    if (pclose(tool) != 0)
        fail("systemd-analyze syscall-filter " + name);
    for (const std::string &text : lines) {
        const std::vector<std::string> entry = words(text);
        if (entry.size() == 1 && text[0] == ' ')
            addCalls(entry[0], calls);
    }
}

/// The numbers of the calls, as the kernel's header has them.
std::map<std::string, unsigned> callNumbers()
{
    std::map<std::string, unsigned> result;
    for (const char *path :
         {"/usr/include/x86_64-linux-gnu/asm/unistd_64.h", "/usr/include/asm/unistd_64.h"}) {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            const std::vector<std::string> entry = words(line);
            if (entry.size() == 3 && entry[1].rfind("__NR_", 0) == 0)
                result[entry[1].substr(5)] = static_cast<unsigned>(std::stoul(entry[2]));
        }
    }
    if (result.empty())
        fail("the kernel's header is not installed");
    return result;
}

/// One call, or with an argument that call when it has these bits or is this value.
class Filter
{
public:
    Filter()
    {
        add(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch));
        code.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0));
        add(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS);
    }

    /// Refused when the argument has all these bits.
    void refuseBits(unsigned call, int argument, unsigned bits)
    {
        loadCall();
        code.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 4));
        add(BPF_LD | BPF_W | BPF_ABS, argumentAt(argument));
        add(BPF_ALU | BPF_AND | BPF_K, bits);
        code.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, bits, 0, 1));
        add(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM);
    }

    /// Sockets of other families are refused.
    void allowFamilies(const std::set<unsigned> &families)
    {
        loadCall();
        const auto count = static_cast<unsigned char>(families.size());
        code.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0,
                                static_cast<unsigned char>(count + 2)));
        add(BPF_LD | BPF_W | BPF_ABS, argumentAt(0));
        unsigned char left = count;
        for (const unsigned family : families) {
            code.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, family, left, 0));
            --left;
        }
        add(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAFNOSUPPORT);
    }

    /// Everything else ends the process, so that a call which the unit forgot is seen.
    void install(const std::set<unsigned> &allowed)
    {
        loadCall();
        for (const unsigned call : allowed) {
            code.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
            add(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
        }
        add(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS);
        const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
            fail("the filter");
    }

private:
    void add(unsigned short operation, unsigned value)
    {
        code.push_back(BPF_STMT(operation, value));
    }
    void loadCall() { add(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)); }
    static unsigned argumentAt(int index)
    {
        return static_cast<unsigned>(offsetof(seccomp_data, args) + sizeof(__u64) * index);
    }

    std::vector<sock_filter> code;
};

/// All mounts but the unit's own paths become read-only in a namespace of our own.
void protectTree(const std::map<std::string, std::string> &unit)
{
    if (unshare(CLONE_NEWNS) != 0)
        fail("a mount namespace");
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        // In a chroot the root is not a mount, and mounts made here would be visible outside.
        if (errno == EINVAL)
            return;
        fail("private mounts");
    }
    const std::string root = variable("QUEUE_ROOT");
    // The unit's paths become their own mounts, which stay writable.
    std::set<std::string> writable;
    std::vector<std::string> paths = words(unit.at("ReadWritePaths"));
    if (words(unit.at("PrivateTmp")) == std::vector<std::string>{"yes"})
        paths.emplace_back("/tmp");
    for (std::string path : paths) {
        path = root + path.substr(path[0] == '-' ? 1 : 0);
        if (mount(path.c_str(), path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
            fail(path);
        writable.insert(path);
    }
    std::ifstream mounts("/proc/self/mounts");
    std::vector<std::string> points;
    for (std::string line; std::getline(mounts, line);)
        points.push_back(words(line)[1]);
    for (const std::string &point : points) {
        if (writable.contains(point) || point.rfind("/proc", 0) == 0 || point.rfind("/dev", 0) == 0)
            continue;
        mount(nullptr, point.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr);
    }
    // The important one; some of the others cannot be changed in a container.
    const std::string probe = root + "/probe";
    if (std::ofstream(probe) || errno != EROFS)
        fail("the tree is not read-only");
}

} // namespace

int main()
{
    const std::map<std::string, std::string> unit = readUnit(variable("CONFINED_UNIT"));
    const std::string program = variable("CONFINED_PROGRAM");
    const std::map<std::string, unsigned> numbers = callNumbers();

    std::set<std::string> calls;
    for (const std::string &name : words(unit.at("SystemCallFilter")))
        addCalls(name, calls);
    std::set<unsigned> allowed;
    for (const std::string &call : calls) {
        if (const auto found = numbers.find(call); found != numbers.end())
            allowed.insert(found->second);
    }
    static const std::map<std::string, unsigned> families{{"AF_UNIX", AF_UNIX},
                                                          {"AF_INET", AF_INET},
                                                          {"AF_INET6", AF_INET6},
                                                          {"AF_NETLINK", AF_NETLINK}};
    std::set<unsigned> allowedFamilies;
    for (const std::string &name : words(unit.at("RestrictAddressFamilies")))
        allowedFamilies.insert(families.at(name));

    if (geteuid() == 0)
        protectTree(unit);

    Filter filter;
    filter.allowFamilies(allowedFamilies);
    if (unit.contains("MemoryDenyWriteExecute")) {
        filter.refuseBits(SYS_mmap, 2, PROT_WRITE | PROT_EXEC);
        filter.refuseBits(SYS_mprotect, 2, PROT_EXEC);
    }
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        fail("no new privileges");
    filter.install(allowed);
    execl(program.c_str(), program.c_str(), nullptr);
    fail(program);
}
