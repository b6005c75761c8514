// The peers here are plain POSIX sockets on 127.0.0.1, mostly in the same thread: the system's buffers lie between them,
// so that every order of events is chosen by the test. What the system does not fail at by itself is made to fail by
// the replacements below. socat stands for the programs out there.

#include "installer/tcp.h"

#include "installer/lib.h"
#include "tests/support.h"

#include <arpa/inet.h>
#include <array>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <functional>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <utility>

namespace {

// How the calls below answer; what is left alone goes on to the system.
struct Faults {
    // An errno to fail with.
    int gethostname = 0, socket = 0, setsockopt = 0, ioctl = 0, listen = 0, read = 0, send = 0;
    int most_sends = 1000;                // send fails so often at most
    bool select_sets_nothing = false;     // select reports a descriptor and marks none
    bool select_times_out = false;        // select waits for nothing and says that the time is over
    std::optional<std::string> host_name; // the name of this machine, without its end when there is no room
    std::optional<hostent *> host;        // what every look-up finds

    // What the calls were given.
    std::size_t name_size = 0;            // gethostname: the last size
    int backlog = 0;                      // listen: the last one
    std::pair<time_t, suseconds_t> limit; // select: the last one
    int reads = 0, sends = 0;             // attempts that failed by order
};

Faults faults;

int fail(int error) {
    errno = error;
    return -1;
}

template <typename Function>
Function *next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The replacements bear other names in the language, so that they need not repeat what the system's headers declare.
extern "C" {
int replaced_gethostname(char *name, std::size_t size) __asm__("gethostname");
int replaced_socket(int domain, int type, int protocol) __asm__("socket");
int replaced_setsockopt(int fd, int level, int option, const void *value,
                        socklen_t size) __asm__("setsockopt");
int replaced_ioctl(int fd, unsigned long request, void *argument) __asm__("ioctl");
int replaced_listen(int fd, int backlog) __asm__("listen");
int replaced_select(int n, fd_set *r, fd_set *w, fd_set *e, timeval *limit) __asm__("select");
ssize_t replaced_read(int fd, void *buffer, std::size_t size) __asm__("read");
ssize_t replaced_send(int fd, const void *buffer, std::size_t size, int flags) __asm__("send");
hostent *replaced_gethostbyname(const char *name) __asm__("gethostbyname");

int replaced_gethostname(char *name, std::size_t size) {
    faults.name_size = size;
    if (faults.gethostname != 0)
        return fail(faults.gethostname);
    if (!faults.host_name)
        return next<decltype(replaced_gethostname)>("gethostname")(name, size);
    std::memcpy(name, faults.host_name->c_str(), std::min(size, faults.host_name->size() + 1));
    return 0;
}

int replaced_socket(int domain, int type, int protocol) {
    if (faults.socket != 0)
        return fail(faults.socket);
    return next<decltype(replaced_socket)>("socket")(domain, type, protocol);
}

int replaced_setsockopt(int fd, int level, int option, const void *value, socklen_t size) {
    if (faults.setsockopt != 0)
        return fail(faults.setsockopt);
    return next<decltype(replaced_setsockopt)>("setsockopt")(fd, level, option, value, size);
}

int replaced_ioctl(int fd, unsigned long request, void *argument) {
    if (faults.ioctl != 0)
        return fail(faults.ioctl);
    return next<int(int, unsigned long, ...)>("ioctl")(fd, request, argument);
}

int replaced_listen(int fd, int backlog) {
    faults.backlog = backlog;
    if (faults.listen != 0)
        return fail(faults.listen);
    return next<decltype(replaced_listen)>("listen")(fd, backlog);
}

int replaced_select(int n, fd_set *r, fd_set *w, fd_set *e, timeval *limit) {
    if (limit != nullptr)
        faults.limit = {limit->tv_sec, limit->tv_usec};
    if (faults.select_times_out)
        return 0;
    if (!faults.select_sets_nothing)
        return next<decltype(replaced_select)>("select")(n, r, w, e, limit);
    for (fd_set *set : {r, w, e})
        if (set != nullptr)
            FD_ZERO(set);
    return 1;
}

ssize_t replaced_read(int fd, void *buffer, std::size_t size) {
    if (faults.read == 0)
        return next<decltype(replaced_read)>("read")(fd, buffer, size);
    faults.reads++;
    return fail(faults.read);
}

ssize_t replaced_send(int fd, const void *buffer, std::size_t size, int flags) {
    if (faults.send == 0 || faults.sends == faults.most_sends)
        return next<decltype(replaced_send)>("send")(fd, buffer, size, flags);
    faults.sends++;
    return fail(faults.send);
}

hostent *replaced_gethostbyname(const char *name) {
    return faults.host ? *faults.host : next<decltype(replaced_gethostbyname)>("gethostbyname")(name);
}
}

namespace installer::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr unsigned int long_enough = 30000; // milliseconds: ends a broken run, never decides a good one
constexpr int blocking = 1, nonblocking = 0;
const std::string loopback = "127.0.0.1";

// A descriptor of the test's own.
class Fd {
  public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    Fd(Fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd &operator=(Fd &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Fd() { close(); }
    operator int() const { return fd_; }
    void close() {
        if (fd_ != -1)
            ::close(std::exchange(fd_, -1));
    }
    // Closes so that the peer gets a reset instead of the end of the stream.
    void reset() {
        const linger at_once{1, 0};
        EXPECT_EQ(0, setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once));
        close();
    }

  private:
    int fd_;
};

sockaddr_in local(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

Fd plain_socket() {
    return Fd(::socket(AF_INET, SOCK_STREAM, 0));
}

Fd plain_listener(int backlog = 16) {
    Fd fd = plain_socket();
    const sockaddr_in address = local(0);
    EXPECT_EQ(0, ::bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    EXPECT_EQ(0, ::listen(fd, backlog));
    return fd;
}

int connect_plain(int fd, int port) {
    const sockaddr_in address = local(port);
    return ::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

// The local port of a descriptor, a plain number.
int port_of(int fd) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    EXPECT_EQ(0, ::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size));
    return ntohs(address.sin_port);
}

// A port where nobody listens: one that was just given up.
int unused_port() {
    return port_of(plain_listener());
}

bool is_nonblocking(int fd) {
    return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0;
}

bool is_descriptor(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

std::size_t open_descriptors() {
    return names_in("/proc/self/fd").size();
}

void send_plain(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::send(fd, text.data(), text.size(), MSG_NOSIGNAL);
        ASSERT_GT(count, 0) << std::strerror(errno);
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

// What comes up to the end of the stream, or up to `most` bytes.
std::string receive_plain(int fd, std::size_t most = std::string::npos) {
    std::string all;
    std::array<char, 65536> piece;
    while (all.size() < most) {
        const ssize_t count = ::recv(fd, piece.data(), std::min(piece.size(), most - all.size()), 0);
        if (count <= 0)
            break;
        all.append(piece.data(), static_cast<std::size_t>(count));
    }
    return all;
}

// What a name server would answer: a host with these addresses.
class Host {
  public:
    explicit Host(std::vector<std::string> addresses, int family = AF_INET) : bytes_(addresses.size()) {
        for (std::size_t i = 0; i < addresses.size(); i++) {
            EXPECT_EQ(1, inet_pton(family, addresses[i].c_str(), bytes_[i].data()));
            list_.push_back(bytes_[i].data());
        }
        list_.push_back(nullptr);
        host_.h_addrtype = family;
        host_.h_length = family == AF_INET ? 4 : 16;
        host_.h_addr_list = list_.data();
    }
    hostent *get() { return &host_; }

  private:
    std::vector<std::array<char, 16>> bytes_;
    std::vector<char *> list_;
    hostent host_{};
};

class Tcp : public LogDir {
  protected:
    Tcp() {
        faults = Faults{};
        // A name server that does not answer is given up soon.
        setenv("RES_OPTIONS", "timeout:1 attempts:1", 1);
    }
    ~Tcp() override {
        faults = Faults{};
        for (socket *made : sockets_)
            tcp_free(&made);
        contimeout = contimeout_;
    }

    socket *make(int mode) {
        sockets_.push_back(tcp_new(mode));
        return sockets_.back();
    }

    // Connects `x` to `peer`, a plain socket, and forgets what was logged about it.
    void connect(int mode) {
        const Fd listener = plain_listener();
        x = make(mode);
        ASSERT_EQ(1, tcp_open(x, "127.0.0.1", port_of(listener)));
        peer = Fd(::accept(listener, nullptr, nullptr));
        ASSERT_NE(-1, peer);
        logged();
    }

    // Has `peer` send a text and waits until it can be read.
    void arrives(std::string_view text) {
        send_plain(peer, text);
        ASSERT_EQ(1, tcp_select(x, long_enough, TcpReadable));
    }

    // What was logged since the last call, but for the line of the process's first socket.
    std::vector<std::string> logged() {
        std::vector<std::string> lines = log_lines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(seen_));
        seen_ += lines.size();
        std::erase(lines, "Debug: Sockets initialised");
        return lines;
    }

    // The errors among them.
    std::vector<std::string> errors() {
        std::vector<std::string> lines = logged();
        std::erase_if(lines, [](const std::string &text) { return !text.starts_with("Error: "); });
        return lines;
    }

    // The lines that tcp_gets gives until it gives none.
    std::vector<std::string> all_lines(int size) {
        std::vector<std::string> lines;
        std::string buffer(static_cast<std::size_t>(size), '#');
        while (tcp_gets(x, buffer.data(), size) != 0)
            lines.emplace_back(buffer.c_str());
        return lines;
    }

    std::string read_some(int size) {
        std::string buffer(static_cast<std::size_t>(size), '#');
        return buffer.substr(0, static_cast<std::size_t>(tcp_read(x, buffer.data(), size)));
    }

    socket *x = nullptr;
    Fd peer;
    char line[100] = "";

  private:
    std::size_t seen_ = 0;
    int contimeout_ = contimeout;
    std::vector<socket *> sockets_;
};

std::string closed_line(int fd) {
    return "Debug: Socket " + std::to_string(fd) + " closed normally";
}

// --- The host name ---

TEST_F(Tcp, HostNameIsTheSystemsName) {
    char expected[1000] = "", buffer[1000] = "before";
    ASSERT_EQ(0, ::gethostname(expected, sizeof expected));
    EXPECT_EQ(buffer, tcp_hostname(buffer, sizeof buffer));
    EXPECT_STREQ(expected, buffer);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, HostNameFailureGivesTheLoopbackAddressAndOneErrorLine) {
    faults.gethostname = EFAULT;
    char buffer[1000] = "before";
    EXPECT_EQ(buffer, tcp_hostname(buffer, sizeof buffer));
    EXPECT_STREQ("127.0.0.1", buffer);
    EXPECT_THAT(logged(), ElementsAre("Error: Gethostname failed, Bad address"));
}

TEST_F(Tcp, HostNameLeavesOneCharacterForTheTerminator) {
    faults.host_name = "abcdefghij";
    char buffer[7] = "######";
    EXPECT_EQ(buffer, tcp_hostname(buffer, 6));
    EXPECT_EQ(5U, faults.name_size);
    EXPECT_STREQ("abcde", buffer); // the system put no terminator down
    EXPECT_EQ('\0', buffer[6]);
}

TEST_F(Tcp, HostNameInOneCharacterAllowsTheSystemNone) {
    char buffer[2] = {'#', '#'};
    EXPECT_EQ(buffer, tcp_hostname(buffer, 1));
    EXPECT_EQ(0U, faults.name_size);
    EXPECT_EQ('\0', buffer[0]);
    EXPECT_EQ('#', buffer[1]);
    EXPECT_THAT(logged(), ElementsAre("Error: Gethostname failed, File name too long"));
}

TEST_F(Tcp, HostNameWithoutABufferTouchesNothing) {
    char buffer[] = "#";
    EXPECT_EQ(nullptr, tcp_hostname(nullptr, 1000));
    EXPECT_EQ(buffer, tcp_hostname(buffer, 0));
    EXPECT_EQ(buffer, tcp_hostname(buffer, -1));
    EXPECT_STREQ("#", buffer);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, HostNameDoesNotInitialiseSockets) {
    char buffer[1000];
    tcp_hostname(buffer, sizeof buffer);
    EXPECT_THAT(log_lines(), IsEmpty());
}

// --- Addresses and errors ---

TEST_F(Tcp, IsIpTakesDigitsAndDotsOnly) {
    for (const char *ip : {"", "10.0.0.1", "127.0.0.1", "...", "1", "1.2.3.999", "0123456789."})
        EXPECT_EQ(1, tcp_isip(ip)) << ip;
    for (const char *name :
         {"host1", "10.0.0.1 ", " 10.0.0.1", "-1", "::1", "1.2.3.4\n", "1,2", "\xb2", "0x7f"})
        EXPECT_EQ(0, tcp_isip(name)) << name;
    EXPECT_EQ(0, tcp_isip(nullptr));
}

TEST_F(Tcp, NameLookUpGivesTheLastAddress) {
    Host host({"10.1.2.3", "10.1.2.4", "192.168.255.0"});
    faults.host = host.get();
    char buffer[16] = "";
    EXPECT_EQ(buffer, tcp_getipbyname("many", buffer, sizeof buffer));
    EXPECT_STREQ("192.168.255.0", buffer);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, NameLookUpCutsTheAddressToTheBuffer) {
    Host host({"10.1.2.3"});
    faults.host = host.get();
    char buffer[] = "########";
    EXPECT_EQ(buffer, tcp_getipbyname("one", buffer, 5));
    EXPECT_STREQ("10.1", buffer);
    EXPECT_STREQ("###", buffer + 5);
}

TEST_F(Tcp, NameWithoutAnIpv4AddressGivesNull) {
    Host none({}), ipv6({"::1"}, AF_INET6);
    char buffer[16] = "before";
    for (Host *host : {&none, &ipv6}) {
        faults.host = host->get();
        EXPECT_EQ(nullptr, tcp_getipbyname("name", buffer, sizeof buffer));
        EXPECT_STREQ("before", buffer);
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, FailedNameLookUpGivesNullAndOneErrorLine) {
    faults.host = nullptr;
    char buffer[16] = "before";
    EXPECT_EQ(nullptr, tcp_getipbyname("name", buffer, sizeof buffer));
    EXPECT_STREQ("before", buffer);
    EXPECT_THAT(logged(), ElementsAre(StartsWith("Error: Socket gethostbyname failed, ")));
}

TEST_F(Tcp, FailedNameLookUpNamesNeitherAnOlderErrorNorSuccess) {
    faults.host = nullptr;
    char buffer[16];
    errno = EISDIR;
    EXPECT_EQ(nullptr, tcp_getipbyname("name", buffer, sizeof buffer));
    EXPECT_THAT(logged(), ElementsAre("Error: Socket gethostbyname failed, Cannot assign requested address"));
}

TEST_F(Tcp, RealNameLookUpsComeToAnEnd) {
    char buffer[16] = "";
    EXPECT_EQ(buffer, tcp_getipbyname("localhost", buffer, sizeof buffer));
    EXPECT_THAT(buffer, StartsWith("127."));
    EXPECT_EQ(buffer, tcp_getipbyname("10.20.30.40", buffer, sizeof buffer));
    EXPECT_STREQ("10.20.30.40", buffer);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(nullptr, tcp_getipbyname("no such host", buffer, sizeof buffer));
    EXPECT_EQ(nullptr, tcp_getipbyname("", buffer, sizeof buffer));
    EXPECT_EQ(nullptr, tcp_getipbyname(std::string(5000, 'a').c_str(), buffer, sizeof buffer));
    EXPECT_THAT(logged(), testing::AllOf(testing::SizeIs(3),
                                         testing::Each(StartsWith("Error: Socket gethostbyname failed, "))));
}

TEST_F(Tcp, NameLookUpTakesNoNulls) {
    char buffer[16] = "before";
    EXPECT_EQ(nullptr, tcp_getipbyname(nullptr, buffer, sizeof buffer));
    EXPECT_EQ(nullptr, tcp_getipbyname("localhost", nullptr, 16));
    EXPECT_EQ(nullptr, tcp_getipbyname("localhost", buffer, 0));
    EXPECT_STREQ("before", buffer);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, ErrorTellsAboutErrno) {
    errno = ENOENT;
    EXPECT_STREQ("No such file or directory", tcp_error());
    errno = ECONNREFUSED;
    EXPECT_EQ(ECONNREFUSED, tcp_last_error());
}

TEST_F(Tcp, WouldBlockIsACallNotDoneYet) {
    for (const int err : {EWOULDBLOCK, EAGAIN, EINPROGRESS})
        EXPECT_EQ(1, tcp_would_block(err)) << err;
    for (const int err : {0, -1, EALREADY, EINTR, ECONNREFUSED, EPIPE})
        EXPECT_EQ(0, tcp_would_block(err)) << err;
}

// --- Making and setting ---

TEST_F(Tcp, InitLogsEveryTime) {
    EXPECT_EQ(1, tcp_init());
    EXPECT_EQ(1, tcp_init());
    EXPECT_THAT(log_lines(), ElementsAre("Debug: Sockets initialised", "Debug: Sockets initialised"));
}

TEST_F(Tcp, OnlyTheFirstNewInitialises) {
    // A new process, in which no socket was made yet; it leaves with the number of lines as its status.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto lines_of_two_sockets = [this] {
        make(blocking);
        make(blocking);
        const std::vector<std::string> lines = log_lines();
        std::filesystem::remove_all(std::filesystem::path(dir()).parent_path());
        _exit(lines == std::vector<std::string>{"Debug: Sockets initialised"} ? 0 : 1);
    };
    EXPECT_EXIT(lines_of_two_sockets(), testing::ExitedWithCode(0), "");
}

TEST_F(Tcp, NewIsClosedWithDefaultTimeouts) {
    const socket *made = make(blocking);
    EXPECT_EQ(0U, made->noblock);
    EXPECT_EQ(30000, made->readtimeout);
    EXPECT_EQ(30000, made->writetimeout);
    EXPECT_EQ(0xFFFFFFFFU, made->s);
    EXPECT_EQ(nullptr, made->left);
    EXPECT_EQ(0, made->xerror);
    EXPECT_EQ(0, tcp_isopen(made));
    EXPECT_EQ(-1, tcp_socket(made));
    EXPECT_STREQ("", tcp_myip(made));
    EXPECT_STREQ("", tcp_peerip(made));
    EXPECT_EQ(0, tcp_myport(made));
    EXPECT_EQ(0, tcp_peerport(made));
    EXPECT_EQ(1U, make(nonblocking)->noblock);
}

TEST_F(Tcp, TimeoutsOfMinusOneStay) {
    x = make(nonblocking);
    tcp_set_timeouts(x, 10, -1);
    tcp_set_timeouts(x, -1, 20);
    EXPECT_EQ(10, x->readtimeout);
    EXPECT_EQ(20, x->writetimeout);
    tcp_set_timeouts(nullptr, 1, 1);
    EXPECT_EQ(10000, contimeout);
    tcp_set_contimeout(-1);
    EXPECT_EQ(10000, contimeout);
    tcp_set_contimeout(5);
    EXPECT_EQ(5, contimeout);
}

TEST_F(Tcp, SetBlockReachesAnOpenDescriptor) {
    connect(blocking);
    EXPECT_FALSE(is_nonblocking(tcp_socket(x)));
    EXPECT_EQ(1, tcp_set_block(x, 0));
    EXPECT_TRUE(is_nonblocking(tcp_socket(x)));
    EXPECT_EQ(1U, x->noblock);
    EXPECT_EQ(1, tcp_set_block(x, 7));
    EXPECT_FALSE(is_nonblocking(tcp_socket(x)));
    EXPECT_EQ(0U, x->noblock);
}

TEST_F(Tcp, SetBlockOfAClosedSocketIsForLater) {
    x = make(blocking);
    EXPECT_EQ(1, tcp_set_block(x, 0));
    EXPECT_EQ(1U, x->noblock);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, SetBlockOfABadDescriptorFails) {
    x = make(blocking);
    x->s = 1 << 20;
    EXPECT_EQ(0, tcp_set_block(x, 0));
    EXPECT_EQ(1U, x->noblock);
    EXPECT_THAT(logged(), ElementsAre("Error: Socket failed ioctl(non-blocking)"));
    x->s = 0xFFFFFFFFU;
}

TEST_F(Tcp, NullSocketsFail) {
    char buffer[8] = "before";
    socket *none = nullptr;
    x = make(blocking);
    EXPECT_EQ(0, tcp_set_block(nullptr, 1));
    EXPECT_EQ(0, tcp_open(nullptr, "127.0.0.1", 1));
    EXPECT_EQ(0, tcp_open(x, nullptr, 1));
    EXPECT_EQ(0, tcp_bind(nullptr, nullptr, 0, 0));
    EXPECT_EQ(0, tcp_accept(nullptr, x));
    EXPECT_EQ(0, tcp_accept(x, nullptr));
    EXPECT_EQ(0, tcp_isopen(nullptr));
    EXPECT_EQ(nullptr, tcp_myip(nullptr));
    EXPECT_EQ(nullptr, tcp_peerip(nullptr));
    EXPECT_EQ(0, tcp_myport(nullptr));
    EXPECT_EQ(0, tcp_peerport(nullptr));
    EXPECT_EQ(-1, tcp_socket(nullptr));
    EXPECT_EQ(0, tcp_select(nullptr, 0, TcpReadable));
    EXPECT_EQ(0, tcp_read(nullptr, buffer, 8));
    EXPECT_EQ(0, tcp_read(x, nullptr, 8));
    EXPECT_EQ(0, tcp_read(x, buffer, 0));
    EXPECT_EQ(0, tcp_gets(nullptr, buffer, 8));
    EXPECT_EQ(0, tcp_gets(x, nullptr, 8));
    EXPECT_EQ(0, tcp_gets(x, buffer, 0));
    EXPECT_EQ(0, tcp_gets(x, buffer, -1));
    EXPECT_EQ(0, tcp_write(nullptr, buffer, 8));
    EXPECT_EQ(0, tcp_write(x, nullptr, 8));
    EXPECT_EQ(0, tcp_write(x, buffer, -1));
    EXPECT_EQ(0, tcp_printf(nullptr, "%s", "text"));
    int (*unchecked)(socket *, const char *, ...) = tcp_printf; // the compiler warns of a null format
    EXPECT_EQ(0, unchecked(x, nullptr));
    tcp_close(nullptr);
    tcp_free(nullptr);
    tcp_free(&none);
    EXPECT_STREQ("before", buffer);
    EXPECT_THAT(logged(), IsEmpty());
}

// --- Connecting ---

TEST_F(Tcp, OpenConnectsAndTellsBothEnds) {
    for (const int mode : {blocking, nonblocking}) {
        const Fd listener = plain_listener();
        const int port = port_of(listener);
        x = make(mode);
        ASSERT_EQ(1, tcp_open(x, "127.0.0.1", port));
        EXPECT_EQ(1, tcp_isopen(x));
        EXPECT_EQ(mode == nonblocking, is_nonblocking(tcp_socket(x)));
        EXPECT_EQ("127.0.0.1:" + std::to_string(port),
                  tcp_peerip(x) + (":" + std::to_string(tcp_peerport(x))));
        EXPECT_EQ(loopback, tcp_myip(x));
        EXPECT_THAT(logged(), ElementsAre("Debug: Connect 127.0.0.1:" + std::to_string(tcp_myport(x)) +
                                          " -> 127.0.0.1:" + std::to_string(port)));
    }
}

TEST_F(Tcp, OpenKeepsTheLocalPortInNetworkByteOrder) {
    connect(blocking);
    EXPECT_EQ(htons(static_cast<std::uint16_t>(port_of(tcp_socket(x)))), tcp_myport(x));
}

TEST_F(Tcp, OpenTakesANameAndItsFirstAddress) {
    Host host({"127.0.0.1", "127.9.9.9"});
    faults.host = host.get();
    const Fd listener = plain_listener(); // answers at 127.0.0.1 only
    x = make(blocking);
    EXPECT_EQ(1, tcp_open(x, "a-rather-long-host-name", port_of(listener)));
    EXPECT_STREQ("a-rather-long-h", tcp_peerip(x));
}

TEST_F(Tcp, OpenKnowsLocalhost) {
    const Fd listener = plain_listener();
    x = make(nonblocking);
    EXPECT_EQ(1, tcp_open(x, "localhost", port_of(listener)));
    EXPECT_STREQ("localhost", tcp_peerip(x));
}

TEST_F(Tcp, OpenFailsWithoutAnAddress) {
    x = make(blocking);
    faults.host = nullptr;
    EXPECT_EQ(0, tcp_open(x, "no such host", 80));
    EXPECT_THAT(logged(), ElementsAre(StartsWith("Error: Socket gethostbyname failed, ")));
    Host none({}), ipv6({"::1"}, AF_INET6);
    for (Host *host : {&none, &ipv6}) {
        faults.host = host->get();
        EXPECT_EQ(0, tcp_open(x, "name", 80));
        EXPECT_THAT(logged(),
                    ElementsAre("Error: Socket gethostbyname failed, Cannot assign requested address"));
    }
    EXPECT_EQ(0, tcp_isopen(x));
}

TEST_F(Tcp, OpenFailsForDigitsAndDotsThatAreNoAddress) {
    x = make(blocking);
    for (const char *ip : {"", "...", "1.2.3.999"}) {
        EXPECT_EQ(0, tcp_open(x, ip, 9)) << ip;
        EXPECT_THAT(errors(), ElementsAre("Error: Socket connection failed"));
    }
}

TEST_F(Tcp, OpenRefusesWhatIsNoPort) {
    x = make(blocking);
    for (const int port : {-1, 65536, 65536 + 80})
        EXPECT_EQ(0, tcp_open(x, "127.0.0.1", port)) << port;
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, OpenWithoutADescriptorFails) {
    x = make(blocking);
    faults.socket = EMFILE;
    EXPECT_EQ(0, tcp_open(x, "127.0.0.1", 80));
    EXPECT_EQ(0, tcp_isopen(x));
    EXPECT_THAT(logged(), ElementsAre("Error: Socket failed to open correctly, Too many open files"));
}

TEST_F(Tcp, OpenThatCannotBeMadeNonBlockingIsClosed) {
    const std::size_t before = open_descriptors();
    x = make(nonblocking);
    faults.ioctl = EINVAL;
    EXPECT_EQ(0, tcp_open(x, "127.0.0.1", 80));
    EXPECT_EQ(0, tcp_isopen(x));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_THAT(logged(),
                ElementsAre("Error: Socket failed ioctl(non-blocking)", StartsWith("Debug: Socket ")));
}

TEST_F(Tcp, OpenThatIsRefusedFailsAndIsClosed) {
    const std::size_t before = open_descriptors();
    const int port = unused_port();
    for (const int mode : {blocking, nonblocking}) {
        x = make(mode);
        EXPECT_EQ(0, tcp_open(x, "127.0.0.1", port)) << mode;
        EXPECT_EQ(0, tcp_isopen(x));
        EXPECT_EQ(before, open_descriptors());
        EXPECT_THAT(errors(), ElementsAre("Error: Socket connection failed"));
    }
}

TEST_F(Tcp, OpenWithoutAnAnswerEndsAtTheTimeout) {
    const Fd listener = plain_listener(0); // nobody accepts, so it is full after one connection or a few
    std::vector<Fd> waiting;
    for (int i = 0; i < 8; i++) {
        waiting.push_back(Fd(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)));
        connect_plain(waiting.back(), port_of(listener));
    }
    const std::size_t before = open_descriptors();
    x = make(nonblocking);
    tcp_set_contimeout(20);
    EXPECT_EQ(0, tcp_open(x, "127.0.0.1", port_of(listener)));
    EXPECT_EQ(0, tcp_isopen(x));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_THAT(errors(), ElementsAre("Error: Socket connection failed"));
}

TEST_F(Tcp, OpenAgainClosesTheOldConnectionAndDropsItsText) {
    connect(nonblocking);
    arrives("one\nof the old one\n");
    EXPECT_EQ(3, tcp_gets(x, line, sizeof line));
    const std::size_t before = open_descriptors();
    const Fd listener = plain_listener();
    ASSERT_EQ(1, tcp_open(x, "127.0.0.1", port_of(listener)));
    EXPECT_EQ(before + 1, open_descriptors()); // the new listener
    EXPECT_EQ(nullptr, x->left);
    EXPECT_EQ("", receive_plain(peer)); // the end of the stream
}

// --- Listening ---

TEST_F(Tcp, BindToEveryAddressIsAll) {
    x = make(blocking);
    ASSERT_EQ(1, tcp_bind(x, nullptr, 0, 0));
    EXPECT_STREQ("ALL", tcp_myip(x));
    EXPECT_EQ(0, tcp_myport(x)); // as given
    EXPECT_EQ(128, faults.backlog);
    EXPECT_THAT(logged(), ElementsAre("Debug: Bound ALL:0"));
    const Fd client = plain_socket();
    EXPECT_EQ(0, connect_plain(client, port_of(tcp_socket(x))));
}

TEST_F(Tcp, BindToOneAddressAndPort) {
    const int port = unused_port();
    x = make(blocking);
    ASSERT_EQ(1, tcp_bind(x, "127.0.0.1", port, 0));
    EXPECT_STREQ("127.0.0.1", tcp_myip(x));
    EXPECT_EQ(port, tcp_myport(x));
    EXPECT_EQ(port, port_of(tcp_socket(x)));
    EXPECT_THAT(logged(), ElementsAre("Debug: Bound 127.0.0.1:" + std::to_string(port)));
}

TEST_F(Tcp, BindToANameUsesItsFirstAddress) {
    Host host({"127.0.0.1", "203.0.113.1"});
    faults.host = host.get();
    x = make(blocking);
    ASSERT_EQ(1, tcp_bind(x, "a-rather-long-host-name", 0, 0));
    EXPECT_STREQ("a-rather-long-h", tcp_myip(x));
    faults.host = nullptr;
    EXPECT_EQ(0, tcp_bind(x, "name", 0, 0));
    EXPECT_THAT(errors(), ElementsAre(StartsWith("Error: Socket gethostbyname failed, ")));
}

TEST_F(Tcp, BindWithReuseSetsTheOptionAndSaysHello) {
    x = make(blocking);
    ASSERT_EQ(1, tcp_bind(x, "127.0.0.1", 0, 1));
    int on = 0;
    socklen_t size = sizeof on;
    ASSERT_EQ(0, getsockopt(tcp_socket(x), SOL_SOCKET, SO_REUSEADDR, &on, &size));
    EXPECT_NE(0, on);
    EXPECT_THAT(logged(), ElementsAre("Info: hello", "Debug: Bound 127.0.0.1:0"));
}

TEST_F(Tcp, BindRefusesTheAddressOfZeros) {
    x = make(blocking);
    for (const char *ip : {"0.0.0.0", "0"}) {
        EXPECT_EQ(0, tcp_bind(x, ip, 0, 0));
        EXPECT_EQ(0, tcp_isopen(x));
        EXPECT_THAT(logged(), ElementsAre("Error: Socket failed to resolve ip {" + std::string(ip) + "}"));
    }
}

TEST_F(Tcp, BindRefusesWhatIsNoPort) {
    x = make(blocking);
    EXPECT_EQ(0, tcp_bind(x, "127.0.0.1", -1, 0));
    EXPECT_EQ(0, tcp_bind(x, "127.0.0.1", 65536, 0));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, TheLastPortIsAPort) {
    x = make(blocking);
    // It may be taken, which is told; a port that is none is refused without a word.
    tcp_bind(x, "127.0.0.1", 65535, 1);
    EXPECT_THAT(logged(), testing::Not(IsEmpty()));
}

TEST_F(Tcp, BindFailuresAreLoggedAndClose) {
    const Fd taken = plain_listener();
    const int port = port_of(taken);
    struct {
        int Faults::*call;
        int error, port;
        const char *line;
    } const rows[] = {
        {&Faults::socket, EMFILE, 0, "Error: Socket failed to open correctly, Too many open files"},
        {&Faults::setsockopt, EACCES, 0, "Error: Socket failed to set re-use option, Permission denied"},
        {&Faults::socket, 0, port, "Error: Socket failed to bind correctly, Address already in use"},
        {&Faults::listen, EOPNOTSUPP, 0, "Error: Socket listen failed, Operation not supported"},
    };
    const std::size_t before = open_descriptors();
    for (const auto &row : rows) {
        x = make(blocking);
        faults.*row.call = row.error;
        EXPECT_EQ(0, tcp_bind(x, "127.0.0.1", row.port, 1)) << row.line;
        faults = Faults{};
        EXPECT_EQ(0, tcp_isopen(x)) << row.line;
        EXPECT_EQ(before, open_descriptors()) << row.line;
        EXPECT_THAT(errors(), ElementsAre(row.line));
    }
}

TEST_F(Tcp, AcceptTellsBothEnds) {
    socket *listener = make(blocking);
    ASSERT_EQ(1, tcp_bind(listener, nullptr, 0, 0));
    listener->myport = 4711; // a value that can only be copied
    for (const int mode : {blocking, nonblocking}) {
        const Fd client = plain_socket();
        ASSERT_EQ(0, connect_plain(client, port_of(tcp_socket(listener))));
        logged();
        x = make(mode);
        ASSERT_EQ(1, tcp_accept(listener, x));
        EXPECT_EQ(mode == nonblocking, is_nonblocking(tcp_socket(x)));
        EXPECT_STREQ("ALL", tcp_myip(x));
        EXPECT_EQ(4711, tcp_myport(x));
        EXPECT_STREQ("127.0.0.1", tcp_peerip(x));
        EXPECT_EQ(port_of(client), tcp_peerport(x));
        EXPECT_THAT(logged(),
                    ElementsAre("Debug: Accept ALL:4711 <- 127.0.0.1:" + std::to_string(tcp_peerport(x))));
    }
}

TEST_F(Tcp, AcceptFailsWhereNobodyListens) {
    connect(blocking);
    EXPECT_EQ(0, tcp_accept(x, make(blocking)));
    EXPECT_THAT(logged(), ElementsAre("Error: Socket accept failed, Invalid argument"));
    EXPECT_EQ(0, tcp_accept(make(blocking), make(blocking)));
    EXPECT_THAT(logged(), ElementsAre("Error: Socket accept failed, Bad file descriptor"));
}

TEST_F(Tcp, AcceptOnANonBlockingListenerDoesNotWait) {
    socket *listener = make(blocking);
    ASSERT_EQ(1, tcp_bind(listener, "127.0.0.1", 0, 0));
    ASSERT_EQ(1, tcp_set_block(listener, 0));
    logged();
    EXPECT_EQ(0, tcp_accept(listener, make(blocking)));
    EXPECT_THAT(logged(), ElementsAre("Error: Socket accept failed, Resource temporarily unavailable"));
}

TEST_F(Tcp, AcceptThatCannotBeMadeNonBlockingIsClosed) {
    socket *listener = make(blocking);
    ASSERT_EQ(1, tcp_bind(listener, "127.0.0.1", 0, 0));
    const Fd client = plain_socket();
    ASSERT_EQ(0, connect_plain(client, port_of(tcp_socket(listener))));
    x = make(nonblocking);
    faults.ioctl = EINVAL;
    EXPECT_EQ(0, tcp_accept(listener, x));
    EXPECT_EQ(0, tcp_isopen(x));
    EXPECT_THAT(errors(), ElementsAre("Error: Socket failed ioctl(non-blocking)"));
    EXPECT_EQ("", receive_plain(client)); // the end of the stream
}

TEST_F(Tcp, AcceptIntoAnOpenSocketClosesItsOldConnection) {
    connect(blocking);
    socket *listener = make(blocking);
    ASSERT_EQ(1, tcp_bind(listener, "127.0.0.1", 0, 0));
    const Fd client = plain_socket();
    ASSERT_EQ(0, connect_plain(client, port_of(tcp_socket(listener))));
    x->left = s_strdup("of the old one");
    ASSERT_EQ(1, tcp_accept(listener, x));
    EXPECT_EQ(nullptr, x->left);
    EXPECT_EQ("", receive_plain(peer)); // the end of the stream
}

TEST_F(Tcp, AListenerIsNotItsOwnConnection) {
    x = make(blocking);
    ASSERT_EQ(1, tcp_bind(x, "127.0.0.1", 0, 0));
    EXPECT_EQ(0, tcp_accept(x, x));
    EXPECT_EQ(1, tcp_isopen(x));
}

// --- Closing ---

TEST_F(Tcp, CloseSaysSoAndForgetsTheDescriptor) {
    connect(blocking);
    const int fd = tcp_socket(x);
    tcp_close(x);
    EXPECT_EQ(0xFFFFFFFFU, x->s);
    EXPECT_FALSE(is_descriptor(fd));
    EXPECT_THAT(logged(), ElementsAre(closed_line(fd)));
    tcp_close(x);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, FailedCloseForgetsTheDescriptorToo) {
    x = make(blocking);
    x->s = 1 << 20;
    tcp_close(x);
    EXPECT_EQ(0xFFFFFFFFU, x->s);
    EXPECT_THAT(logged(), ElementsAre("Error: Socket 1048576 failed to close, Bad file descriptor"));
}

TEST_F(Tcp, CloseKeepsTheTextLeft) {
    connect(blocking);
    arrives("one\ntwo\n");
    EXPECT_EQ(3, tcp_gets(x, line, sizeof line));
    tcp_close(x);
    EXPECT_EQ(3, tcp_gets(x, line, sizeof line));
    EXPECT_STREQ("two", line);
}

TEST_F(Tcp, FreeClosesAndClearsThePointer) {
    const Fd listener = plain_listener();
    socket *mine = tcp_new(blocking);
    ASSERT_EQ(1, tcp_open(mine, "127.0.0.1", port_of(listener)));
    mine->left = s_strdup("text that goes with it");
    const int fd = tcp_socket(mine);
    tcp_free(&mine);
    EXPECT_EQ(nullptr, mine);
    EXPECT_FALSE(is_descriptor(fd));
}

TEST_F(Tcp, AThousandConnectionsLeaveNoDescriptor) {
    socket *listener = make(blocking);
    ASSERT_EQ(1, tcp_bind(listener, "127.0.0.1", 0, 0));
    const int port = port_of(tcp_socket(listener));
    const std::size_t before = open_descriptors();
    for (int i = 0; i < 1000; i++) {
        socket *client = tcp_new(i % 2), *server = tcp_new(i % 2);
        ASSERT_EQ(1, tcp_open(client, "127.0.0.1", port)) << i;
        ASSERT_EQ(1, tcp_accept(listener, server)) << i;
        tcp_free(&client);
        tcp_free(&server);
    }
    EXPECT_EQ(before, open_descriptors());
    EXPECT_THAT(errors(), IsEmpty());
}

// --- Waiting ---

TEST_F(Tcp, SelectTellsWhatTheSocketIsReadyFor) {
    connect(blocking);
    EXPECT_EQ(0, tcp_select(x, 0, TcpReadable));
    EXPECT_EQ(1, tcp_select(x, 0, TcpWritable));
    EXPECT_EQ(1, tcp_select(x, 0, TcpReadable | TcpWritable | TcpExceptional));
    arrives("x");
    EXPECT_EQ(1, tcp_select(x, 0, TcpReadable | TcpExceptional));
    EXPECT_EQ(0, tcp_select(x, 0, TcpExceptional));
    EXPECT_EQ(0, tcp_select(x, 1, 0));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, SelectTypesAreTheseNumbers) {
    EXPECT_EQ(4, TcpReadable);
    EXPECT_EQ(2, TcpWritable);
    EXPECT_EQ(1, TcpExceptional);
}

TEST_F(Tcp, SelectWaitsForSecondsAndMicroseconds) {
    connect(blocking);
    const struct {
        unsigned int msecs;
        std::pair<time_t, suseconds_t> limit;
    } rows[] = {{0, {0, 0}},
                {999, {0, 999000}},
                {1001, {1, 1000}},
                {30000, {30, 0}},
                {4294967295U, {4294967, 295000}}};
    for (const auto &row : rows) {
        EXPECT_EQ(1, tcp_select(x, row.msecs, TcpWritable));
        EXPECT_EQ(row.limit, faults.limit) << row.msecs;
    }
}

TEST_F(Tcp, SelectEndsWhenTheTimeIsOver) {
    connect(blocking);
    EXPECT_EQ(0, tcp_select(x, 1, TcpReadable));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, SelectFailsForADescriptorThatWasClosed) {
    connect(blocking);
    ASSERT_EQ(0, ::close(tcp_socket(x)));
    EXPECT_EQ(0, tcp_select(x, 0, TcpReadable));
    EXPECT_THAT(logged(), ElementsAre("Error: Socket select failed, Bad file descriptor"));
    x->s = 0xFFFFFFFFU;
    EXPECT_EQ(0, tcp_select(x, 0, TcpReadable));
    EXPECT_THAT(logged(), ElementsAre("Error: Socket select failed, Bad file descriptor"));
}

TEST_F(Tcp, SelectFailsForADescriptorBeyondItsSets) {
    x = make(nonblocking);
    for (const std::uint32_t s : {std::uint32_t{FD_SETSIZE}, 70000U, 0x7FFFFFFFU}) {
        x->s = s;
        for (const int types : {4, 2, 1, 7})
            EXPECT_EQ(0, tcp_select(x, 0, types));
        EXPECT_THAT(logged(), testing::AllOf(testing::SizeIs(4),
                                             testing::Each("Error: Socket select failed, Invalid argument")));
    }
    x->s = 0xFFFFFFFFU;
}

TEST_F(Tcp, SelectTakesAnAskedForExceptionAsFailure) {
    connect(blocking);
    ASSERT_EQ(1, ::send(peer, "!", 1, MSG_OOB)); // urgent data is TCP's exceptional condition
    EXPECT_EQ(0, tcp_select(x, long_enough, TcpExceptional));
    EXPECT_THAT(logged(), ElementsAre(StartsWith("Error: Socket select failed, ")));
    EXPECT_EQ(0, tcp_select(x, 0, TcpWritable | TcpExceptional));
    EXPECT_THAT(logged(), ElementsAre(StartsWith("Error: Socket select failed, ")));
    EXPECT_EQ(1, tcp_select(x, 0, TcpWritable));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, SelectReportsTheUnreachable) {
    connect(blocking);
    faults.select_sets_nothing = true;
    EXPECT_EQ(0, tcp_select(x, 0, TcpReadable));
    EXPECT_THAT(logged(), ElementsAre("Error: *** Socket, the unreachable was reached ***"));
}

// --- Reading ---

TEST_F(Tcp, ReadGivesTheBytesAsTheyCome) {
    for (const int mode : {blocking, nonblocking}) {
        connect(mode);
        arrives(std::string_view("a\0b\n", 4));
        char buffer[6] = {'#', '#', '#', '#', '#', '#'};
        EXPECT_EQ(4, tcp_read(x, buffer, 6));
        EXPECT_EQ(std::string("a\0b\n##", 6), std::string(buffer, 6)); // no terminator
        peer.close();
        EXPECT_EQ(0, tcp_read(x, buffer, 6));
        EXPECT_THAT(logged(), IsEmpty());
    }
}

TEST_F(Tcp, ReadFillsTheWholeBuffer) {
    connect(blocking);
    arrives("abcdef");
    EXPECT_EQ("abc", read_some(3));
    EXPECT_EQ("def", read_some(3));
}

TEST_F(Tcp, ReadEndsWhenTheTimeIsOver) {
    connect(nonblocking);
    tcp_set_timeouts(x, 1, -1);
    EXPECT_EQ("", read_some(10));
    tcp_set_timeouts(x, -5, -1); // below 0: not at all
    EXPECT_EQ("", read_some(10));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, ReadWaitsForTheOtherEnd) {
    connect(nonblocking);
    std::thread later([this] {
        usleep(20000);
        send_plain(peer, "late");
    });
    EXPECT_EQ("late", read_some(10));
    later.join();
}

TEST_F(Tcp, BlockingReadOfAResetConnectionFailsAtOnce) {
    connect(blocking);
    peer.reset();
    ASSERT_EQ(1, tcp_select(x, long_enough, TcpReadable));
    EXPECT_EQ("", read_some(10));
    EXPECT_THAT(logged(), ElementsAre("Error: Error reading from socket, Connection reset by peer"));
}

TEST_F(Tcp, NonBlockingReadOfAResetConnectionGivesNothing) {
    connect(nonblocking);
    peer.reset();
    EXPECT_EQ("", read_some(10));
}

TEST_F(Tcp, ReadOfAClosedSocketFails) {
    x = make(blocking);
    EXPECT_EQ("", read_some(10));
    EXPECT_THAT(logged(), ElementsAre("Error: Error reading from socket, Bad file descriptor"));
    x = make(nonblocking);
    EXPECT_EQ("", read_some(10));
    EXPECT_THAT(logged(), ElementsAre("Error: Socket select failed, Bad file descriptor"));
}

TEST_F(Tcp, NonBlockingReadTriesFiftyTimes) {
    connect(nonblocking);
    arrives("always there, never given");
    faults.read = EAGAIN;
    char buffer[10];
    const int count = tcp_read(x, buffer, sizeof buffer);
    faults.read = 0;
    EXPECT_EQ(0, count);
    EXPECT_EQ(50, faults.reads);
    EXPECT_THAT(logged(), ElementsAre("Error: Error reading from socket, Resource temporarily unavailable"));
}

TEST_F(Tcp, BlockingReadTriesOnce) {
    connect(blocking);
    faults.read = EINTR;
    char buffer[10];
    const int count = tcp_read(x, buffer, sizeof buffer);
    faults.read = 0;
    EXPECT_EQ(0, count);
    EXPECT_EQ(1, faults.reads);
    EXPECT_THAT(logged(), ElementsAre("Error: Error reading from socket, Interrupted system call"));
}

TEST_F(Tcp, NonBlockingTransferEndsAtAnExceptionalCondition) {
    connect(nonblocking);
    ASSERT_EQ(1, ::send(peer, "!", 1, MSG_OOB)); // urgent data is TCP's exceptional condition
    EXPECT_EQ(0, tcp_select(x, long_enough, TcpExceptional));
    logged();
    tcp_set_timeouts(x, 0, 0);
    faults.read = faults.send = EAGAIN;
    char buffer[10];
    const int count = tcp_read(x, buffer, sizeof buffer);
    const int written = tcp_write(x, "text", 4);
    faults.read = faults.send = 0;
    EXPECT_EQ(0, count);
    EXPECT_EQ(0, written);
    EXPECT_EQ(1, faults.reads);
    EXPECT_EQ(1, faults.sends);
    EXPECT_THAT(logged(), ElementsAre(StartsWith("Error: Socket select failed, "),
                                      StartsWith("Error: Socket select failed, "),
                                      StartsWith("Error: Socket write error, ")));
}

TEST_F(Tcp, ReadServesTheTextLeftInPieces) {
    connect(blocking);
    arrives("one\ntwo");
    ASSERT_EQ(3, tcp_gets(x, line, sizeof line));
    send_plain(peer, "three");
    char buffer[3] = {'#', '#', '#'};
    EXPECT_EQ(2, tcp_read(x, buffer, 3)); // room for two and a terminator
    EXPECT_STREQ("tw", buffer);
    EXPECT_STREQ("o", x->left);
    EXPECT_EQ(1, tcp_read(x, line, sizeof line)); // the text left alone, although more could be read
    EXPECT_STREQ("o", line);
    EXPECT_EQ(nullptr, x->left);
    EXPECT_EQ("three", read_some(5));
}

TEST_F(Tcp, ReadWithRoomForNothingKeepsTheTextLeft) {
    x = make(blocking);
    x->left = s_strdup("kept");
    char buffer[2] = {'#', '#'};
    EXPECT_EQ(0, tcp_read(x, buffer, 1));
    EXPECT_EQ('\0', buffer[0]);
    EXPECT_EQ('#', buffer[1]);
    EXPECT_STREQ("kept", x->left);
}

// --- Lines ---

TEST_F(Tcp, GetsGivesALineAndKeepsTheRest) {
    connect(blocking);
    arrives("ab\r\ncd");
    EXPECT_EQ(2, tcp_gets(x, line, sizeof line));
    EXPECT_STREQ("ab", line);
    EXPECT_STREQ("cd", x->left);
    arrives("ef\n");
    EXPECT_EQ(4, tcp_gets(x, line, sizeof line));
    EXPECT_STREQ("cdef", line);
    EXPECT_EQ(nullptr, x->left);
}

TEST_F(Tcp, GetsCutsTheLineEndOff) {
    const struct {
        const char *sent, *line;
        int result;
    } rows[] = {
        {"\n", "", 1},         {"\r\n", "", 1},         {"\r\r\r\n", "", 1},     {"a\n", "a", 1},
        {"ab\r\r\n", "ab", 2}, {"a\rb\r\n", "a\rb", 3}, {" a \t\n", " a \t", 4}, {"\ra\n", "\ra", 2},
    };
    connect(blocking);
    for (const auto &row : rows) {
        send_plain(peer, row.sent);
        std::memset(line, '#', sizeof line);
        EXPECT_EQ(row.result, tcp_gets(x, line, sizeof line)) << row.line;
        EXPECT_STREQ(row.line, line);
        EXPECT_EQ('\0', line[std::strlen(row.sent) - 1]) << "the LF is still there";
    }
}

TEST_F(Tcp, GetsFindsEveryLineOfOneReadInOrder) {
    connect(blocking);
    send_plain(peer, "1\n22\n\n333\r\n4\n");
    peer.close();
    EXPECT_THAT(all_lines(100), ElementsAre("1", "22", "", "333", "4"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, GetsKeepsTheTextLeftInItsOrder) {
    x = make(blocking);
    x->left = s_strdup("1\n2\n3\n4\n");
    char buffer[5];
    EXPECT_EQ(1, tcp_gets(x, buffer, sizeof buffer)); // takes "1\n2\n" and gives "2\n" back, before "3\n4\n"
    EXPECT_STREQ("1", buffer);
    EXPECT_STREQ("2\n3\n4\n", x->left);
    x->s = 0xFFFFFFFFU;
    EXPECT_EQ(1, tcp_gets(x, buffer, sizeof buffer));
    EXPECT_EQ(1, tcp_gets(x, buffer, sizeof buffer));
    EXPECT_STREQ("3", buffer);
    EXPECT_STREQ("4\n", x->left);
}

TEST_F(Tcp, GetsPutsALineTogetherFromSingleBytes) {
    connect(nonblocking);
    tcp_set_timeouts(x, 0, -1);
    for (const char c : std::string("slow\r")) {
        arrives(std::string(1, c));
        EXPECT_EQ(0, tcp_gets(x, line, sizeof line)); // the time is over in the middle of the line
    }
    arrives("\n");
    EXPECT_EQ(4, tcp_gets(x, line, sizeof line));
    EXPECT_STREQ("slow", line);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, GetsWaitsForALineThatComesByteByByte) {
    for (const int mode : {blocking, nonblocking}) {
        connect(mode);
        std::thread slow([this] {
            const int on = 1;
            setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            for (const char c : std::string("by the byte\r\nand again\r\n")) {
                send_plain(peer, std::string_view(&c, 1));
                usleep(500);
            }
            peer.close();
        });
        EXPECT_THAT(all_lines(20), ElementsAre("by the byte", "and again"));
        slow.join();
    }
}

TEST_F(Tcp, GetsRefusesALineThatFillsTheBuffer) {
    connect(blocking);
    arrives("abcde");
    char buffer[6];
    EXPECT_EQ(0, tcp_gets(x, buffer, sizeof buffer));
    EXPECT_STREQ("abcde", buffer);
    EXPECT_THAT(logged(),
                ElementsAre("Error: Socket {tcp_gets} cannot return a line, line is too long for buffer"));
    send_plain(peer, "fgh\n");
    EXPECT_EQ(3, tcp_gets(x, buffer, sizeof buffer)); // the rest of it
    EXPECT_STREQ("fgh", buffer);
}

TEST_F(Tcp, GetsTakesALineThatJustFits) {
    connect(blocking);
    arrives("abcd\n");
    char buffer[6];
    EXPECT_EQ(4, tcp_gets(x, buffer, sizeof buffer));
    EXPECT_STREQ("abcd", buffer);
}

TEST_F(Tcp, GetsGetsPastALineOfAnyLength) {
    connect(blocking);
    std::thread sender([this] {
        send_plain(peer, std::string(100000, 'x') + "\nnext\n");
        peer.close();
    });
    std::size_t pieces = 0, length = 0;
    char buffer[100];
    while (tcp_gets(x, buffer, sizeof buffer) == 0 && pieces < 2000) {
        length += std::strlen(buffer);
        pieces++;
    }
    length += std::strlen(buffer);
    EXPECT_EQ(1010U, pieces); // 100000 / 99
    EXPECT_EQ(100000U, length);
    EXPECT_THAT(all_lines(100), ElementsAre("next"));
    EXPECT_EQ(pieces, errors().size());
    sender.join();
}

TEST_F(Tcp, GetsInOneCharacterIsALineTooLong) {
    x = make(blocking);
    x->left = s_strdup("kept\n");
    char buffer[2] = {'#', '#'};
    EXPECT_EQ(0, tcp_gets(x, buffer, 1));
    EXPECT_EQ('\0', buffer[0]);
    EXPECT_EQ('#', buffer[1]);
    EXPECT_STREQ("kept\n", x->left);
    EXPECT_THAT(logged(),
                ElementsAre("Error: Socket {tcp_gets} cannot return a line, line is too long for buffer"));
}

TEST_F(Tcp, GetsAtTheEndOfTheStreamGivesNothing) {
    for (const int mode : {blocking, nonblocking}) {
        connect(mode);
        peer.close();
        EXPECT_EQ(0, tcp_gets(x, line, sizeof line));
        EXPECT_EQ(0, tcp_gets(x, line, sizeof line));
        EXPECT_THAT(logged(), IsEmpty());
    }
}

TEST_F(Tcp, GetsLeavesALineWithoutItsEndToRead) {
    connect(blocking);
    send_plain(peer, "whole\nunended");
    peer.close();
    EXPECT_THAT(all_lines(100), ElementsAre("whole"));
    EXPECT_EQ("unended", read_some(100));
    EXPECT_EQ("", read_some(100));
}

TEST_F(Tcp, GetsOfAResetConnectionFails) {
    connect(blocking);
    peer.reset();
    ASSERT_EQ(1, tcp_select(x, long_enough, TcpReadable));
    EXPECT_EQ(0, tcp_gets(x, line, sizeof line));
    EXPECT_THAT(logged(), ElementsAre("Error: Error reading from socket, Connection reset by peer"));
}

TEST_F(Tcp, GetsReadsANulAsABlank) {
    connect(blocking);
    send_plain(peer, std::string_view("a\0b\nc\0\nd\n", 9));
    peer.close();
    EXPECT_THAT(all_lines(100), ElementsAre("a b", "c ", "d"));
}

TEST_F(Tcp, GetsPassesAnyOtherByte) {
    std::string bytes;
    for (int c = 1; c < 256; c++)
        if (c != '\n' && c != '\r')
            bytes += static_cast<char>(c);
    connect(blocking);
    send_plain(peer, bytes + "\n");
    peer.close();
    EXPECT_THAT(all_lines(300), ElementsAre(bytes));
}

TEST_F(Tcp, GetsReadsTenThousandLines) {
    for (const int mode : {blocking, nonblocking}) {
        connect(mode);
        std::thread sender([this] {
            std::string text;
            for (int i = 0; i < 10000; i++)
                text += "line " + std::to_string(i) + (i % 2 == 0 ? "\n" : "\r\n");
            send_plain(peer, text);
            peer.close();
        });
        int wrong = 0;
        for (int i = 0; i < 10000; i++) {
            const std::string expected = "line " + std::to_string(i);
            if (tcp_gets(x, line, sizeof line) != static_cast<int>(expected.size()) || line != expected)
                wrong++;
        }
        EXPECT_EQ(0, wrong);
        EXPECT_EQ(0, tcp_gets(x, line, sizeof line));
        sender.join();
        EXPECT_THAT(logged(), IsEmpty());
    }
}

// --- Writing ---

TEST_F(Tcp, WriteSendsTheBytes) {
    for (const int mode : {blocking, nonblocking}) {
        connect(mode);
        EXPECT_EQ(5, tcp_write(x, "a\0b\r\n", 5));
        EXPECT_EQ(0, tcp_write(x, "nothing", 0));
        tcp_close(x);
        EXPECT_EQ(std::string("a\0b\r\n", 5), receive_plain(peer));
        EXPECT_THAT(errors(), IsEmpty());
    }
}

TEST_F(Tcp, WriteTellsAPartialCount) {
    connect(nonblocking);
    const std::string much(32 << 20, 'x'); // more than any buffer takes
    const int count = tcp_write(x, much.data(), static_cast<int>(much.size()));
    EXPECT_GT(count, 0);
    EXPECT_LT(count, static_cast<int>(much.size()));
    std::thread closer([this] { tcp_close(x); });
    EXPECT_EQ(static_cast<std::size_t>(count), receive_plain(peer).size());
    closer.join();
}

TEST_F(Tcp, WriteGivesUpWhenNobodyReads) {
    connect(nonblocking);
    tcp_set_timeouts(x, -1, 1);
    const std::string much(1 << 20, 'x');
    int writes = 0;
    while (tcp_write(x, much.data(), static_cast<int>(much.size())) != 0 && writes < 1000)
        writes++;
    EXPECT_LT(writes, 1000);
    EXPECT_THAT(logged(), ElementsAre("Error: Socket write error, Resource temporarily unavailable"));
    EXPECT_EQ(0, tcp_printf(x, "%s", much.c_str()));
    EXPECT_THAT(logged(), ElementsAre("Error: Socket write error, Resource temporarily unavailable"));
}

TEST_F(Tcp, WriteGoesOnAfterATimeout) {
    connect(nonblocking);
    faults.send = EAGAIN;
    faults.most_sends = 3;
    faults.select_times_out = true;
    EXPECT_EQ(4, tcp_write(x, "text", 4));
    EXPECT_EQ(3, faults.sends);
    EXPECT_EQ(std::pair(time_t{30}, suseconds_t{0}), faults.limit);
    EXPECT_EQ("text", receive_plain(peer, 4));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Tcp, NonBlockingWriteTriesFiftyTimes) {
    connect(nonblocking);
    faults.send = EAGAIN;
    EXPECT_EQ(0, tcp_write(x, "text", 4));
    EXPECT_EQ(50, faults.sends);
    EXPECT_THAT(logged(), ElementsAre("Error: Socket write error, Resource temporarily unavailable"));
    faults.sends = 0;
    EXPECT_EQ(0, tcp_printf(x, "text"));
    EXPECT_EQ(50, faults.sends);
    EXPECT_THAT(logged(), ElementsAre("Error: Socket write error, Resource temporarily unavailable"));
}

TEST_F(Tcp, BlockingWriteTriesOnce) {
    connect(blocking);
    faults.send = EINTR;
    EXPECT_EQ(0, tcp_write(x, "text", 4));
    EXPECT_EQ(0, tcp_printf(x, "text"));
    EXPECT_EQ(2, faults.sends);
    EXPECT_THAT(logged(), ElementsAre("Error: Socket write error, Interrupted system call",
                                      "Error: Socket write error, Interrupted system call"));
}

TEST_F(Tcp, WriteToAPeerThatIsGoneIsAnErrorAndNoSignal) {
    const auto before = std::signal(SIGPIPE, SIG_DFL); // which would end the program
    for (const int mode : {blocking, nonblocking}) {
        connect(mode);
        peer.reset();
        ASSERT_EQ(1, tcp_select(x, long_enough, TcpReadable));
        EXPECT_EQ("", read_some(1)); // takes the reset, so that the next error is the closed stream's
        logged();
        EXPECT_EQ(0, tcp_write(x, "text", 4));
        EXPECT_THAT(logged(), ElementsAre("Error: Socket write error, Broken pipe"));
        EXPECT_EQ(0, tcp_printf(x, "text"));
        EXPECT_THAT(logged(), ElementsAre("Error: Socket write error, Broken pipe"));
    }
    std::signal(SIGPIPE, before);
}

TEST_F(Tcp, WriteToAPeerThatClosedEarlyEndsInAnError) {
    connect(blocking);
    peer.close();
    int writes = 0;
    while (tcp_write(x, "text", 4) != 0 &&
           writes < 100000) // the first ones are on their way before its answer
        writes++;
    EXPECT_LT(writes, 100000);
    EXPECT_THAT(logged(), ElementsAre(StartsWith("Error: Socket write error, ")));
}

TEST_F(Tcp, WriteToAClosedSocketFails) {
    x = make(blocking);
    EXPECT_EQ(0, tcp_write(x, "text", 4));
    EXPECT_THAT(logged(), ElementsAre("Error: Socket write error, Bad file descriptor"));
    x = make(nonblocking);
    EXPECT_EQ(0, tcp_write(x, "text", 4));
    EXPECT_THAT(logged(), ElementsAre("Error: Socket select failed, Bad file descriptor",
                                      "Error: Socket write error, Bad file descriptor"));
}

TEST_F(Tcp, WriteTakesADescriptorThatIsNoSocket) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const Fd out(ends[0]);
    x = make(blocking);
    x->s = static_cast<std::uint32_t>(ends[1]);
    EXPECT_EQ(4, tcp_write(x, "text", 4));
    char buffer[10];
    EXPECT_EQ(4, ::read(out, buffer, sizeof buffer));
}

TEST_F(Tcp, PrintfSendsTheFormattedText) {
    connect(nonblocking);
    EXPECT_EQ(1, tcp_printf(x, "%s=%d\r\n", "answer", 42));
    EXPECT_EQ(1, tcp_printf(x, "%s", ""));
    tcp_close(x);
    EXPECT_EQ("answer=42\r\n", receive_plain(peer));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Tcp, PrintfSendsNoMoreThanItsBuffersText) {
    connect(blocking);
    EXPECT_EQ(1, tcp_printf(x, "%s", std::string(1500, 'x').c_str()));
    EXPECT_EQ(1, tcp_printf(x, "%s", std::string(1000, 'y').c_str()));
    EXPECT_EQ(1, tcp_printf(x, "%s", std::string(999, 'z').c_str()));
    tcp_close(x);
    EXPECT_EQ(std::string(999, 'x') + std::string(999, 'y') + std::string(999, 'z'), receive_plain(peer));
}

TEST_F(Tcp, PrintfOfWhatCannotBeFormattedSendsItsBuffersTextAlone) {
    connect(blocking);
    const wchar_t no_character[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    EXPECT_EQ(1, tcp_printf(x, "ok %ls", no_character));
    tcp_close(x);
    EXPECT_TRUE(std::string("ok ").starts_with(receive_plain(peer)));
}

// --- A program out there ---

std::string in_path(const std::string &program) {
    const char *path = std::getenv("PATH");
    std::string folders = path != nullptr ? path : "";
    char *rest = nullptr;
    for (char *folder = s_strtok(folders.data(), ":", &rest); folder; folder = s_strtok(nullptr, ":", &rest))
        if (access((folder + ("/" + program)).c_str(), X_OK) == 0)
            return folder + ("/" + program);
    return "";
}

// A running socat, ended with the test. Its standard error is readable here.
class Socat {
  public:
    explicit Socat(std::vector<std::string> words) {
        int ends[2];
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        errors_ = Fd(ends[0]);
        Fd writing(ends[1]);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, writing, STDERR_FILENO);
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        EXPECT_EQ(0, posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ));
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Socat() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Socat(const Socat &) = delete;
    Socat &operator=(const Socat &) = delete;

    // The port that it says it listens on; 0 when it ends without saying so.
    [[nodiscard]] int port() const {
        std::string said;
        for (char c = 0;
             ::read(errors_, &c, 1) == 1 && (c != '\n' || said.find("listening on") == std::string::npos);)
            said = c == '\n' ? "" : said + c;
        return s_atoi(said.c_str() + said.rfind(':') + 1);
    }

  private:
    pid_t pid_ = -1;
    Fd errors_;
};

TEST_F(Tcp, TalksToSocatAsAServer) {
    const std::string socat = in_path("socat");
    if (socat.empty())
        GTEST_SKIP() << "socat is not in the PATH";
    for (const int mode : {blocking, nonblocking}) {
        const Socat echo({socat, "-d", "-d", "TCP4-LISTEN:0,bind=127.0.0.1", "EXEC:cat"});
        x = make(mode);
        ASSERT_EQ(1, tcp_open(x, "127.0.0.1", echo.port()));
        EXPECT_EQ(1, tcp_printf(x, "first\r\n\nthird\n"));
        ::shutdown(tcp_socket(x), SHUT_WR);
        EXPECT_THAT(all_lines(100), ElementsAre("first", "", "third"));
    }
}

TEST_F(Tcp, TalksToSocatAsAClient) {
    const std::string socat = in_path("socat");
    if (socat.empty())
        GTEST_SKIP() << "socat is not in the PATH";
    for (const int mode : {blocking, nonblocking}) {
        socket *listener = make(blocking);
        ASSERT_EQ(1, tcp_bind(listener, "127.0.0.1", 0, 1));
        const std::string port = std::to_string(port_of(tcp_socket(listener)));
        const Socat echo({socat, "TCP4:127.0.0.1:" + port, "EXEC:cat"});
        x = make(mode);
        ASSERT_EQ(1, tcp_accept(listener, x));
        for (int i = 0; i < 100; i++) {
            ASSERT_EQ(1, tcp_printf(x, "line %d\r\n", i));
            ASSERT_NE(0, tcp_gets(x, line, sizeof line));
            EXPECT_EQ("line " + std::to_string(i), line);
        }
        ::shutdown(tcp_socket(x), SHUT_WR);
        EXPECT_EQ(0, tcp_gets(x, line, sizeof line));
    }
}

} // namespace
} // namespace installer::test
