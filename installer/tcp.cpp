#include "installer/tcp.h"

#include "installer/lib.h"
#include "installer/msg.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <new>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace installer {

int contimeout = 10000;

namespace {

constexpr std::uint32_t no_descriptor = ~std::uint32_t{0};
constexpr int max_attempts = 50;
constexpr int backlog = 128;
constexpr int default_timeout = 30000;

bool initialised = false;

// --- Names and addresses ---

// The resolver tells its failures apart in a way of its own and often leaves `errno` alone: neither an older cause nor
// "Success" may be logged then.
void report_look_up() {
    if (errno == 0)
        errno = EADDRNOTAVAIL;
    emsg("Socket gethostbyname failed, %s", tcp_error());
}

hostent *look_up(const char *name) {
    errno = 0;
    hostent *host = ::gethostbyname(name);
    if (host == nullptr)
        report_look_up();
    return host;
}

bool has_address(const hostent &host) {
    return host.h_addrtype == AF_INET && host.h_addr_list[0] != nullptr;
}

bool resolve(const char *ip, in_addr &address) {
    if (tcp_isip(ip)) {
        address.s_addr = ::inet_addr(ip);
        return true;
    }
    const hostent *host = look_up(ip);
    if (host == nullptr)
        return false;
    if (!has_address(*host)) {
        errno = 0;
        report_look_up();
        return false;
    }
    std::memcpy(&address, host->h_addr_list[0], sizeof address);
    return true;
}

bool is_port(int port) {
    return port >= 0 && port <= 65535;
}

sockaddr_in address_at(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    return address;
}

const sockaddr *generic(const sockaddr_in &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}
sockaddr *generic(sockaddr_in &address) {
    return reinterpret_cast<sockaddr *>(&address);
}

// --- Waiting ---

struct select_result {
    int count = -1;
    bool readable = false, writable = false, exceptional = false;
};

// A set for each of `types` that asks for it; the others stay empty, so that a member found afterwards was asked for.
select_result select_one(int fd, unsigned int msecs, int types) {
    if (fd < 0 || fd >= FD_SETSIZE) {
        errno = fd < 0 ? EBADF : EINVAL; // no such member of an fd_set: FD_SET would write beside it
        return {};
    }
    fd_set readable, writable, exceptional;
    FD_ZERO(&readable);
    FD_ZERO(&writable);
    FD_ZERO(&exceptional);
    if ((types & TcpReadable) != 0)
        FD_SET(fd, &readable);
    if ((types & TcpWritable) != 0)
        FD_SET(fd, &writable);
    if ((types & TcpExceptional) != 0)
        FD_SET(fd, &exceptional);
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(msecs / 1000);
    limit.tv_usec = static_cast<suseconds_t>(msecs % 1000) * 1000;
    const int count = ::select(fd + 1, &readable, &writable, &exceptional, &limit);
    if (count <= 0)
        return {count};
    return {count, FD_ISSET(fd, &readable) != 0, FD_ISSET(fd, &writable) != 0,
            FD_ISSET(fd, &exceptional) != 0};
}

// 1 when the socket is ready, 0 when the time is over, -1 for a failure, which is logged.
int wait_for(const socket *x, unsigned int msecs, int types) {
    const select_result result = select_one(tcp_socket(x), msecs, types);
    if (result.count == 0)
        return 0;
    if (result.count < 0 || result.exceptional) {
        emsg("Socket select failed, %s", tcp_error());
        return -1;
    }
    if (result.readable || result.writable)
        return 1;
    emsg("*** Socket, the unreachable was reached ***");
    return -1;
}

unsigned int milliseconds(int timeout) {
    return static_cast<unsigned int>(std::max(timeout, 0));
}

// --- Opening ---

// Releases what belongs to an earlier connection: its text must not be read as the next one's.
void renew(socket *x) {
    tcp_close(x);
    std::free(x->left);
    x->left = nullptr;
}

bool create(socket *x) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd == -1) {
        emsg("Socket failed to open correctly, %s", tcp_error());
        return false;
    }
    x->s = static_cast<std::uint32_t>(fd);
    return true;
}

bool apply_mode(const socket *x) {
    int on = x->noblock != 0 ? 1 : 0;
    if (::ioctl(tcp_socket(x), FIONBIO, &on) != -1)
        return true;
    emsg("Socket failed ioctl(non-blocking)");
    return false;
}

// Waits for a connection under way. A refused one becomes writable too; its error tells it apart.
bool completes(int fd) {
    if (!select_one(fd, milliseconds(contimeout), TcpWritable).writable)
        return false;
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == -1)
        return false;
    errno = error;
    return error == 0;
}

bool connect_to(const socket *x, const sockaddr_in &address) {
    const int fd = tcp_socket(x);
    if (::connect(fd, generic(address), sizeof address) == 0)
        return true;
    if (x->noblock != 0 && tcp_would_block(errno) && completes(fd))
        return true;
    emsg("Socket connection failed");
    return false;
}

bool allow_reuse(const socket *x) {
    const int on = 1;
    if (::setsockopt(tcp_socket(x), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == -1) {
        emsg("Socket failed to set re-use option, %s", tcp_error());
        return false;
    }
    imsg("hello"); // tells nothing, and is kept on purpose
    return true;
}

bool listen_at(const socket *x, const sockaddr_in &address) {
    if (::bind(tcp_socket(x), generic(address), sizeof address) == -1) {
        emsg("Socket failed to bind correctly, %s", tcp_error());
        return false;
    }
    if (::listen(tcp_socket(x), backlog) == -1) {
        emsg("Socket listen failed, %s", tcp_error());
        return false;
    }
    return true;
}

// Null binds to every address. The text "0.0.0.0" would do so too, and is refused: it must be asked for by null.
bool resolve_local(const char *ip, in_addr &address) {
    if (ip == nullptr)
        return true;
    if (!resolve(ip, address))
        return false;
    if (!tcp_isip(ip) || address.s_addr != 0)
        return true;
    emsg("Socket failed to resolve ip {%s}", ip);
    return false;
}

void note_local(socket *x) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(tcp_socket(x), generic(address), &size);
    scpy(x->myip, ::inet_ntoa(address.sin_addr), sizeof x->myip);
    x->myport = address.sin_port; // in network byte order, as the header says
}

// --- Received text ---

// Moves text left over to `buffer`, as much as fits, and returns its length.
int take_left(socket *x, char *buffer, int bfsz) {
    const int count = scpy(buffer, x->left, bfsz);
    const std::size_t rest = s_strlen(x->left) - static_cast<std::size_t>(count);
    if (rest != 0) {
        std::memmove(x->left, x->left + count, rest + 1);
        return count;
    }
    std::free(x->left);
    x->left = nullptr;
    return count;
}

// Puts `text` in front of the text left over.
void put_back(socket *x, const char *text) {
    if (*text == '\0')
        return;
    const text_ptr rest(x->left);
    x->left = sadd(sadd(nullptr, text), rest.get());
}

// The count of bytes read; 0 at the end of the stream, when the time is over, and on failure, which is logged.
int receive(socket *x, char *buffer, int size) {
    for (int attempt = 1;; ++attempt) {
        const ssize_t count = ::read(tcp_socket(x), buffer, static_cast<std::size_t>(size));
        if (count != -1)
            return static_cast<int>(count);
        if (x->noblock == 0 || attempt == max_attempts)
            break;
        if (!tcp_select(x, milliseconds(x->readtimeout), TcpReadable | TcpExceptional))
            return 0;
    }
    emsg("Error reading from socket, %s", tcp_error());
    return 0;
}

// Appends what comes next to the `have` bytes in `buffer`. Returns how many came, 0 for none.
int receive_text(socket *x, char *buffer, int have, int bfsz) {
    char *start = buffer + have;
    const int count = receive(x, start, bfsz - 1 - have);
    std::replace(start, start + count, '\0', ' '); // the rest would be lost behind a NUL
    start[count] = '\0';
    return count;
}

// Cuts the line before its LF. Returns its length, but 1 for an empty line: 0 would say that there is none.
int end_line(char *line, char *lf) {
    char *end = lf;
    while (end > line && (end[-1] == '\r' || end[-1] == '\n'))
        --end;
    std::fill(end, lf + 1, '\0');
    return std::max(static_cast<int>(end - line), 1);
}

// --- Sending ---

// Sends without SIGPIPE. A descriptor that is no socket takes no such flag.
ssize_t send_once(int fd, const void *data, std::size_t size) {
    const ssize_t count = ::send(fd, data, size, MSG_NOSIGNAL);
    return count == -1 && errno == ENOTSOCK ? ::write(fd, data, size) : count;
}

// The count of bytes taken, or -1 for a failure, which is logged. A time-out is no failure before the last attempt.
int transmit(const socket *x, const void *data, std::size_t size) {
    for (int attempt = 1;; ++attempt) {
        const ssize_t count = send_once(tcp_socket(x), data, size);
        if (count != -1)
            return static_cast<int>(count);
        if (x->noblock == 0 || attempt == max_attempts)
            break;
        if (wait_for(x, milliseconds(x->writetimeout), TcpWritable | TcpExceptional) == -1)
            break;
    }
    emsg("Socket write error, %s", tcp_error());
    return -1;
}

} // namespace

// --- Names, addresses and errors -------------------------------------------------------------------------------------

char *tcp_hostname(char *buffer, int bfsz) {
    if (buffer == nullptr || bfsz < 1)
        return buffer;
    buffer[bfsz - 1] = '\0'; // a name that just fits may come without its end
    if (::gethostname(buffer, static_cast<std::size_t>(bfsz - 1)) == -1) {
        emsg("Gethostname failed, %s", tcp_error());
        scpy(buffer, "127.0.0.1", bfsz);
    }
    return buffer;
}

char *tcp_getipbyname(const char *name, char *buffer, int bfsz) {
    if (name == nullptr || buffer == nullptr || bfsz < 1)
        return nullptr;
    const hostent *host = look_up(name);
    if (host == nullptr || !has_address(*host))
        return nullptr;
    char **last = host->h_addr_list;
    while (last[1] != nullptr)
        ++last;
    unsigned char octet[sizeof(in_addr)];
    std::memcpy(octet, *last, sizeof octet);
    lprintf(buffer, bfsz, "%u.%u.%u.%u", octet[0], octet[1], octet[2], octet[3]);
    return buffer;
}

int tcp_isip(const char *s) {
    return s != nullptr && s[std::strspn(s, "0123456789.")] == '\0' ? 1 : 0;
}

int tcp_init() {
    dmsg("Sockets initialised");
    initialised = true;
    return 1;
}

const char *tcp_error() {
    return std::strerror(errno);
}

int tcp_last_error() {
    return errno;
}

int tcp_would_block(int err) {
    return err == EWOULDBLOCK || err == EAGAIN || err == EINPROGRESS ? 1 : 0;
}

// --- Make ------------------------------------------------------------------------------------------------------------

socket *tcp_new(int blocking) {
    if (!initialised)
        tcp_init();
    auto *x = new (std::nothrow) socket{};
    if (x == nullptr)
        return nullptr;
    x->noblock = blocking == 0 ? 1 : 0;
    x->readtimeout = default_timeout;
    x->writetimeout = default_timeout;
    x->s = no_descriptor;
    return x;
}

// --- Settings --------------------------------------------------------------------------------------------------------

int tcp_set_block(socket *x, int mode) {
    if (x == nullptr)
        return 0;
    x->noblock = mode == 0 ? 1 : 0;
    return !tcp_isopen(x) || apply_mode(x) ? 1 : 0;
}

void tcp_set_timeouts(socket *x, int read, int write) {
    if (x == nullptr)
        return;
    if (read != -1)
        x->readtimeout = read;
    if (write != -1)
        x->writetimeout = write;
}

void tcp_set_contimeout(int connect) {
    if (connect != -1)
        contimeout = connect;
}

// --- Open ------------------------------------------------------------------------------------------------------------

int tcp_open(socket *x, const char *ip, int port) {
    if (x == nullptr || ip == nullptr || !is_port(port))
        return 0;
    renew(x);
    sockaddr_in address = address_at(port);
    if (!resolve(ip, address.sin_addr) || !create(x))
        return 0;
    if ((x->noblock != 0 && !apply_mode(x)) || !connect_to(x, address)) {
        tcp_close(x);
        return 0;
    }
    scpy(x->peerip, ip, sizeof x->peerip);
    x->peerport = port;
    note_local(x);
    dmsg("Connect %s:%d -> %s:%d", x->myip, x->myport, x->peerip, x->peerport);
    return 1;
}

int tcp_bind(socket *x, const char *ip, int port, int reuse) {
    if (x == nullptr || !is_port(port))
        return 0;
    renew(x);
    sockaddr_in address = address_at(port);
    if (!resolve_local(ip, address.sin_addr) || !create(x))
        return 0;
    if ((reuse != 0 && !allow_reuse(x)) || !listen_at(x, address)) {
        tcp_close(x);
        return 0;
    }
    scpy(x->myip, ip != nullptr ? ip : "ALL", sizeof x->myip);
    x->myport = port;
    dmsg("Bound %s:%d", x->myip, x->myport);
    return 1;
}

int tcp_accept(socket *listener, socket *nsock) {
    if (listener == nullptr || nsock == nullptr || listener == nsock)
        return 0;
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    const int fd = ::accept(tcp_socket(listener), generic(peer), &size);
    if (fd == -1) {
        emsg("Socket accept failed, %s", tcp_error());
        return 0;
    }
    renew(nsock);
    nsock->s = static_cast<std::uint32_t>(fd);
    if (nsock->noblock != 0 && !apply_mode(nsock)) {
        tcp_close(nsock);
        return 0;
    }
    scpy(nsock->peerip, ::inet_ntoa(peer.sin_addr), sizeof nsock->peerip);
    nsock->peerport = ntohs(peer.sin_port);
    scpy(nsock->myip, listener->myip, sizeof nsock->myip);
    nsock->myport = listener->myport;
    dmsg("Accept %s:%d <- %s:%d", nsock->myip, nsock->myport, nsock->peerip, nsock->peerport);
    return 1;
}

// --- Look ------------------------------------------------------------------------------------------------------------

int tcp_isopen(const socket *x) {
    return x != nullptr && x->s != no_descriptor ? 1 : 0;
}

const char *tcp_myip(const socket *x) {
    return x != nullptr ? x->myip : nullptr;
}

const char *tcp_peerip(const socket *x) {
    return x != nullptr ? x->peerip : nullptr;
}

int tcp_myport(const socket *x) {
    return x != nullptr ? x->myport : 0;
}

int tcp_peerport(const socket *x) {
    return x != nullptr ? x->peerport : 0;
}

int tcp_socket(const socket *x) {
    return static_cast<int>(x != nullptr ? x->s : no_descriptor);
}

// --- Wait and transfer -----------------------------------------------------------------------------------------------

int tcp_select(socket *x, unsigned int msecs, int types) {
    return x != nullptr && wait_for(x, msecs, types) == 1 ? 1 : 0;
}

int tcp_read(socket *x, char *buffer, int bfsz) {
    if (x == nullptr || buffer == nullptr || bfsz < 1)
        return 0;
    return s_strlen(x->left) != 0 ? take_left(x, buffer, bfsz) : receive(x, buffer, bfsz);
}

int tcp_gets(socket *x, char *buffer, int bfsz) {
    if (x == nullptr || buffer == nullptr || bfsz < 1)
        return 0;
    int have = take_left(x, buffer, bfsz);
    char *searched = buffer;
    char *lf = nullptr;
    while ((lf = s_strchr(searched, '\n')) == nullptr) {
        searched = buffer + have;
        if (have == bfsz - 1) {
            emsg("Socket {tcp_gets} cannot return a line, line is too long for buffer");
            return 0;
        }
        const int count = receive_text(x, buffer, have, bfsz);
        if (count == 0) {
            put_back(x, buffer);
            return 0;
        }
        have += count;
    }
    put_back(x, lf + 1);
    return end_line(buffer, lf);
}

int tcp_write(socket *x, const void *buffer, int bytes) {
    if (x == nullptr || buffer == nullptr || bytes < 0)
        return 0;
    return std::max(transmit(x, buffer, static_cast<std::size_t>(bytes)), 0);
}

int tcp_printf(socket *x, const char *format, ...) {
    if (x == nullptr || format == nullptr)
        return 0;
    message m;
    va_list args;
    va_start(args, format);
    vmessage(m, format, args);
    va_end(args);
    return transmit(x, m.text, std::strlen(m.text)) != -1 ? 1 : 0;
}

// --- Release ---------------------------------------------------------------------------------------------------------

void tcp_close(socket *x) {
    if (!tcp_isopen(x))
        return;
    const int fd = tcp_socket(x);
    if (::close(fd) == 0)
        dmsg("Socket %d closed normally", fd);
    else
        emsg("Socket %d failed to close, %s", fd, tcp_error());
    x->s = no_descriptor;
}

void tcp_free(socket **x) {
    if (x == nullptr || *x == nullptr)
        return;
    tcp_close(*x);
    std::free((*x)->left);
    delete *x;
    *x = nullptr;
}

} // namespace installer
