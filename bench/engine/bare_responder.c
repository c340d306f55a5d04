/* bare_responder: the least an HTTP server can do for engine_load's echo call, to compare
 * the engine's fresh-connection throughput against. A fixed set of threads block in accept
 * on one listening socket; each reads a request to the end of its declared body, answers
 * with a fixed tools/call result that carries "hello", and closes. No parsing beyond
 * Content-Length, no JSON, no logging.
 *
 *   bare_responder --port PORT [--threads N]
 */
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

static int listener = -1;

static const char kBody[] =
    "{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":{\"content\":[{\"type\":\"text\",\"text\":\"hello\"}],\"isError\":false}}";

/* Bytes the whole request takes once its head is in; 0 while the head is incomplete. */
static size_t request_length(const char *data, size_t size)
{
    const char *end = memmem(data, size, "\r\n\r\n", 4);
    if (!end)
        return 0;
    size_t head = (size_t)(end - data) + 4;
    size_t body = 0;
    for (const char *line = data; line < end; ) {
        const char *next = memchr(line, '\n', (size_t)(end - line));
        if (!next)
            break;
        if ((size_t)(next - line) > 15 && strncasecmp(line, "Content-Length:", 15) == 0)
            body = strtoul(line + 15, NULL, 10);
        line = next + 1;
    }
    return head + body;
}

static void *serve(void *unused)
{
    (void)unused;
    char reply[512];
    const int reply_size = snprintf(reply, sizeof reply,
                                    "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: %zu\r\n"
                                    "Connection: close\r\n\r\n%s",
                                    sizeof kBody - 1, kBody);
    char buffer[16384];
    for (;;) {
        const int fd = accept4(listener, NULL, NULL, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            return NULL;
        }
        size_t have = 0, want = 0;
        while (have < sizeof buffer) {
            const ssize_t got = recv(fd, buffer + have, sizeof buffer - have, 0);
            if (got <= 0)
                break;
            have += (size_t)got;
            if (!want)
                want = request_length(buffer, have);
            if (want && have >= want)
                break;
        }
        if (want && have >= want)
            (void)!send(fd, reply, (size_t)reply_size, MSG_NOSIGNAL);
        close(fd);
    }
}

int main(int argc, char **argv)
{
    int port = 0, threads = 64;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (strcmp(argv[i], "--port") == 0)
            port = atoi(argv[i + 1]);
        else if (strcmp(argv[i], "--threads") == 0)
            threads = atoi(argv[i + 1]);
    }
    if (port <= 0 || threads <= 0) {
        fprintf(stderr, "usage: bare_responder --port PORT [--threads N]\n");
        return 2;
    }
    listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    struct sockaddr_in address = {0};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons((unsigned short)port);
    if (bind(listener, (struct sockaddr *)&address, sizeof address) < 0 || listen(listener, 128) < 0) {
        perror("bare_responder");
        return 1;
    }
    printf("bare_responder listening on port %d with %d threads\n", port, threads);
    fflush(stdout);
    for (int i = 1; i < threads; ++i) {
        pthread_t thread;
        pthread_create(&thread, NULL, serve, NULL);
        pthread_detach(thread);
    }
    serve(NULL);
    return 0;
}
