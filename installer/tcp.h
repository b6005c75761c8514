// A small TCP layer: connections and listeners, blocking or not, with time-outs, lines and a log line for every failure.
//
// The program itself uses only tcp_hostname. The rest is complete in itself: tcp_new makes an endpoint, tcp_open,
// tcp_bind or tcp_accept gives it a descriptor, tcp_free closes and releases it.
//
//     socket *x = tcp_new(0);                          // 0: non-blocking, so the time-outs hold
//     if (tcp_open(x, "127.0.0.1", 7) && tcp_printf(x, "%s\r\n", "hello")) {
//         char line[text_size];
//         if (tcp_gets(x, line, text_size) != 0)
//             imsg("%s", line);
//     }
//     tcp_free(&x);
//
// To hold in mind:
// 1. Results are 1 (or a count, or a text) for success and 0 (or null) for failure and for null arguments. Every failure
//    of the system is logged where it happens; the operation that was opening a socket closes it again.
// 2. Addresses are IPv4. Only a non-blocking socket has time-outs: a blocking one waits as long as the system does.
//    Waiting is done with select(), so a descriptor of FD_SETSIZE or more works but cannot be waited for.
// 3. What tcp_gets received beyond its line stays in `left` and comes first in the next tcp_gets or tcp_read.
// 4. Writing to a peer that is gone is an error (EPIPE) and never the signal SIGPIPE.
// 5. The structure has the name of the system call; within this namespace the call is `::socket`.

#ifndef INSTALLER_TCP_H
#define INSTALLER_TCP_H

#include <cstdint>

namespace installer {

/// A connection or a listener. Made by tcp_new, owned by its caller, released by tcp_free.
struct socket {
    std::int32_t myport;   ///< local port: as given to tcp_bind; after tcp_open in network byte order, as the
                           ///< system's address holds it (an accepted connection has its listener's)
    std::int32_t peerport; ///< remote port, a plain number
    char myip[16];         ///< local address as dotted text; "ALL" for a listener bound to every address
    char peerip[16];       ///< remote address as dotted text, or the name given to tcp_open, cut to fit
    char *left;            ///< owned heap text received and not yet returned, or null
    std::int32_t xerror;   ///< reserved, never set
    std::int32_t readtimeout;  ///< milliseconds to wait for readability between read attempts
    std::int32_t writetimeout; ///< milliseconds to wait for writability between write attempts
    std::uint32_t noblock;     ///< 1 for a non-blocking socket
    std::uint32_t s;           ///< the descriptor, all bits set when closed
};

/// How long tcp_open waits for a non-blocking connection, in milliseconds; 10000 unless set by tcp_set_contimeout.
extern int contimeout;

/// What tcp_select waits for.
enum : int { TcpExceptional = 1, TcpWritable = 2, TcpReadable = 4 };

// --- Names, addresses and errors -------------------------------------------------------------------------------------

/// Puts the machine's host name into `buffer` of `bfsz` characters and returns `buffer`, always. When the system has no
/// name to give, or one that does not fit in `bfsz` - 1 characters with its end, an error is logged and the text is
/// "127.0.0.1", cut to fit. A null buffer or a size below 1 touches nothing.
char *tcp_hostname(char *buffer, int bfsz);

/// Looks `name` up and writes the last address of its list, not the first, as dotted text into `buffer`. Returns
/// `buffer`, or null (buffer untouched) for null arguments, a name without an IPv4 address, or a failed look-up, which
/// is logged. May wait as long as the system's resolver does.
char *tcp_getipbyname(const char *name, char *buffer, int bfsz);

/// 1 when `s` holds nothing but digits and dots, so also for an empty text and for "1.2.3.999"; 0 otherwise and for null.
int tcp_isip(const char *s);

/// Logs that sockets are ready. Returns 1. The first tcp_new calls it.
int tcp_init();

/// The system's words for the current `errno`, borrowed from the system until the next such call.
const char *tcp_error();

/// The current `errno`.
int tcp_last_error();

/// 1 when `err` says only that a non-blocking call is not done yet (EAGAIN, EWOULDBLOCK, EINPROGRESS), else 0.
int tcp_would_block(int err);

// --- Make ------------------------------------------------------------------------------------------------------------

/// A new closed socket, non-blocking when `blocking` is 0, with both time-outs at 30000 ms. Release it with tcp_free.
/// Null only when there is no memory.
socket *tcp_new(int blocking);

// --- Settings --------------------------------------------------------------------------------------------------------

/// Makes the socket blocking (`mode` not 0) or non-blocking, at once when it is open, else for when it is opened.
/// Returns 1, or 0 when the system refuses, which is logged.
int tcp_set_block(socket *x, int mode);

/// Sets the time-outs in milliseconds; -1 leaves one as it is. A value below 0 waits not at all.
void tcp_set_timeouts(socket *x, int read, int write);

/// Sets the time-out of every non-blocking tcp_open in milliseconds; -1 leaves it as it is.
void tcp_set_contimeout(int connect);

// --- Open ------------------------------------------------------------------------------------------------------------
// Each gives the socket a new descriptor; one that was still open is closed first, with the text left from it.

/// Connects to `ip`, an address or a name, at `port`. Returns 1, or 0 with the socket closed: for a null `ip` or a port
/// beyond 0 to 65535 silently, else with an error logged.
int tcp_open(socket *x, const char *ip, int port);

/// Listens at `ip`, an address or a name of this machine, or at every address when it is null ("0.0.0.0" is refused).
/// Port 0 lets the system choose one, which `myport` does not tell. With `reuse` a port left a moment ago is taken
/// over. The listener waits in tcp_accept even when the socket is non-blocking, unless tcp_set_block is called after
/// this. Digits and dots that are no address, such as "1.2.3.999", are 255.255.255.255 to the system, and the system
/// decides about that. Returns 1, or 0 with the socket closed and an error logged (a port beyond 0 to 65535: silently).
int tcp_bind(socket *x, const char *ip, int port, int reuse);

/// Waits for a connection to `listener` and gives it to `nsock`, another socket from tcp_new. Returns 1, or 0 with an
/// error logged.
int tcp_accept(socket *listener, socket *nsock);

// --- Look ------------------------------------------------------------------------------------------------------------

/// 1 while the socket has a descriptor, else 0.
int tcp_isopen(const socket *x);

/// The texts `myip` and `peerip`, borrowed; null for a null socket.
const char *tcp_myip(const socket *x);
const char *tcp_peerip(const socket *x);

/// The fields `myport` and `peerport`; 0 for a null socket.
int tcp_myport(const socket *x);
int tcp_peerport(const socket *x);

/// The descriptor; -1 for a closed or a null socket.
int tcp_socket(const socket *x);

// --- Wait and transfer -----------------------------------------------------------------------------------------------

/// Waits at most `msecs` milliseconds for one of `types`, a sum of TcpReadable, TcpWritable and TcpExceptional. Returns
/// 1 when the socket is readable or writable as asked, 0 when the time is over, and 0 with an error logged when select
/// fails or the exceptional condition was asked for and holds.
int tcp_select(socket *x, unsigned int msecs, int types);

/// Reads up to `bfsz` bytes as they come, without a terminator. Text left from tcp_gets is served first and alone: up to
/// `bfsz` - 1 characters of it and a terminator. Returns the count; 0 at the end of the stream, when the time-out is
/// over, and on failure, which is logged. A non-blocking socket tries up to 50 times.
int tcp_read(socket *x, char *buffer, int bfsz);

/// Reads one line into `buffer`, without its LF and the CRs before it, terminated. Returns its length, but 1 for an
/// empty line, so that 0 always means that there is no line:
/// - at the end of the stream, after a time-out or a failed read what has come so far stays in `left`;
/// - a line that fills `buffer` is an error; its first `bfsz` - 1 characters are in `buffer`, the rest comes next.
/// A NUL byte, which a text cannot hold, is read as a blank.
int tcp_gets(socket *x, char *buffer, int bfsz);

/// Writes up to `bytes` bytes and returns how many the system took, which may be fewer; 0 on failure, which is logged.
/// A non-blocking socket tries up to 50 times with up to `writetimeout` between two attempts.
int tcp_write(socket *x, const void *buffer, int bytes);

/// Formats a text, at most 999 characters of it, and writes it as tcp_write does. Returns 1 once the system took some,
/// 0 on failure, which is logged.
int tcp_printf(socket *x, const char *format, ...) __attribute__((format(printf, 2, 3)));

// --- Release ---------------------------------------------------------------------------------------------------------

/// Closes the descriptor, when there is one; the result is logged and the socket is closed in any case. Text in `left`
/// stays readable.
void tcp_close(socket *x);

/// Closes the socket, releases it with the text left and sets the caller's pointer to null. Null is allowed, for either.
void tcp_free(socket **x);

} // namespace installer

#endif
