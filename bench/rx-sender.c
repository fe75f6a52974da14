/* Sends LLDPDUs into an interface as fast as one sender can (sendmmsg batches, bypassing the
 * queueing discipline), or plays a quiet neighbour on another port: one LLDPDU per interval,
 * while noting when the agent's own LLDPDUs arrive there, to tell how late they were.
 *
 *   rx-sender flood IFACE COUNT MSAPS [SECONDS]
 *     COUNT frames of 112 bytes, cycling over MSAPS senders (chassis ids); with SECONDS, keeps
 *     sending until that much time has passed instead. Prints "sent N seconds S rate R".
 *   rx-sender neighbour IFACE INTERVAL TTL SECONDS
 *     Prints "received N interval-min A interval-max B" for the frames heard from the agent
 *     (their spacing, in seconds).
 *   rx-sender ask SOCKET SECONDS
 *     Asks the agent's state socket for its neighbours every 0.2 s, one connection each, and
 *     prints "asked N median-ms A max-ms B" (connect to the end of the reply).
 */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <errno.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#define FRAME_BYTES 112
#define BATCH 256

static double now(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec + (double)t.tv_nsec * 1e-9;
}

/* An LLDPDU of exactly FRAME_BYTES: chassis id (MAC, last byte = sender), port id, TTL, a
 * system name that fills the rest, End. */
static void buildFrame(uint8_t* f, unsigned sender, unsigned ttl) {
  static const uint8_t header[] = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02, 0x00, 0x00, 0x00, 0x5e, 0x00, 0x88, 0xcc};
  memset(f, 0, FRAME_BYTES);
  memcpy(f, header, sizeof header);
  f[11] = (uint8_t)sender;
  uint8_t* p = f + 14;
  *p++ = 0x02; *p++ = 7; *p++ = 4;  /* Chassis ID, MAC address */
  const uint8_t mac[] = {0x02, 0x00, 0x00, 0x5e, (uint8_t)(sender >> 8), (uint8_t)sender};
  memcpy(p, mac, 6); p += 6;
  *p++ = 0x04; *p++ = 5; *p++ = 5;  /* Port ID, interface name */
  memcpy(p, "eth0", 4); p += 4;
  *p++ = 0x06; *p++ = 2; *p++ = (uint8_t)(ttl >> 8); *p++ = (uint8_t)ttl;
  const size_t name = (size_t)(f + FRAME_BYTES - 2 - (p + 2));
  *p++ = 0x0a; *p++ = (uint8_t)name;  /* System Name */
  memset(p, 'f', name); p += name;
  *p++ = 0; *p++ = 0;  /* End */
}

static int openSocket(const char* iface) {
  const int fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
  if (fd < 0) { perror("socket"); exit(2); }
  struct sockaddr_ll addr = {0};
  addr.sll_family = AF_PACKET;
  addr.sll_protocol = htons(ETH_P_ALL);
  addr.sll_ifindex = (int)if_nametoindex(iface);
  if (!addr.sll_ifindex || bind(fd, (struct sockaddr*)&addr, sizeof addr) != 0) { perror(iface); exit(2); }
  const int on = 1;
  setsockopt(fd, SOL_PACKET, PACKET_QDISC_BYPASS, &on, sizeof on);
  return fd;
}

static int flood(const char* iface, long count, unsigned msaps, double seconds) {
  const int fd = openSocket(iface);
  static uint8_t frames[BATCH][FRAME_BYTES];
  struct mmsghdr msgs[BATCH];
  struct iovec iov[BATCH];
  for (unsigned i = 0; i < BATCH; ++i) {
    buildFrame(frames[i], i % msaps, 120);
    iov[i].iov_base = frames[i];
    iov[i].iov_len = FRAME_BYTES;
    memset(&msgs[i], 0, sizeof msgs[i]);
    msgs[i].msg_hdr.msg_iov = &iov[i];
    msgs[i].msg_hdr.msg_iovlen = 1;
  }
  /* With BATCH a multiple of every MSAPS up to 256 that divides it, each batch cycles the
   * senders evenly; otherwise nearly so. */
  long sent = 0;
  const double start = now();
  while (seconds > 0 ? now() - start < seconds : sent < count) {
    const unsigned n = seconds > 0 || count - sent >= BATCH ? BATCH : (unsigned)(count - sent);
    const int r = sendmmsg(fd, msgs, n, 0);
    if (r < 0) {
      if (errno == ENOBUFS || errno == EAGAIN) continue;
      perror("sendmmsg");
      return 1;
    }
    sent += r;
  }
  const double elapsed = now() - start;
  printf("sent %ld seconds %.3f rate %.0f\n", sent, elapsed, (double)sent / elapsed);
  return 0;
}

static int neighbour(const char* iface, double interval, unsigned ttl, double seconds) {
  const int fd = openSocket(iface);
  uint8_t frame[FRAME_BYTES];
  buildFrame(frame, 0xfff, ttl);
  frame[10] = 0x5f;  /* a sender of its own, apart from the flood's */
  double next = now(), last = 0, minGap = 1e9, maxGap = 0;
  long received = 0;
  const double end = now() + seconds;
  while (now() < end) {
    if (now() >= next) {
      if (send(fd, frame, sizeof frame, 0) < 0) perror("send");
      next += interval;
    }
    struct pollfd p = {fd, POLLIN, 0};
    double wait = next - now();
    if (wait > end - now()) wait = end - now();
    if (poll(&p, 1, wait > 0 ? (int)(wait * 1000) + 1 : 0) <= 0) continue;
    uint8_t in[2048];
    struct sockaddr_ll from;
    socklen_t fromLength = sizeof from;
    const ssize_t n = recvfrom(fd, in, sizeof in, MSG_DONTWAIT, (struct sockaddr*)&from, &fromLength);
    if (n < 14 || from.sll_pkttype == PACKET_OUTGOING) continue;
    if (in[12] != 0x88 || in[13] != 0xcc) continue;
    const double t = now();
    if (received++ > 0) {
      const double gap = t - last;
      if (gap < minGap) minGap = gap;
      if (gap > maxGap) maxGap = gap;
    }
    last = t;
  }
  printf("received %ld interval-min %.4f interval-max %.4f\n", received, received > 1 ? minGap : 0,
         received > 1 ? maxGap : 0);
  return 0;
}

static int compareDoubles(const void* a, const void* b) {
  const double x = *(const double*)a, y = *(const double*)b;
  return (x > y) - (x < y);
}

static int ask(const char* path, double seconds) {
  static double took[10000];
  int asked = 0;
  const double end = now() + seconds;
  while (now() < end && asked < 10000) {
    const double start = now();
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un addr = {0};
    addr.sun_family = AF_UNIX;
    strncpy(addr.sun_path, path, sizeof addr.sun_path - 1);
    if (connect(fd, (struct sockaddr*)&addr, sizeof addr) != 0) { perror(path); return 1; }
    static const char request[] = "{\"v\":1,\"op\":\"neighbors\"}\n";
    if (write(fd, request, sizeof request - 1) < 0) { perror("write"); return 1; }
    char buffer[65536];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof buffer)) > 0 && !memchr(buffer, '\n', (size_t)n)) {
    }
    close(fd);
    took[asked++] = (now() - start) * 1000;
    usleep(200000);
  }
  qsort(took, (size_t)asked, sizeof took[0], compareDoubles);
  printf("asked %d median-ms %.2f max-ms %.2f\n", asked, asked ? took[asked / 2] : 0, asked ? took[asked - 1] : 0);
  return 0;
}

int main(int argc, char** argv) {
  if (argc >= 4 && strcmp(argv[1], "ask") == 0) return ask(argv[2], atof(argv[3]));
  if (argc >= 5 && strcmp(argv[1], "flood") == 0) {
    return flood(argv[2], atol(argv[3]), (unsigned)atoi(argv[4]), argc >= 6 ? atof(argv[5]) : 0);
  }
  if (argc >= 6 && strcmp(argv[1], "neighbour") == 0) {
    return neighbour(argv[2], atof(argv[3]), (unsigned)atoi(argv[4]), atof(argv[5]));
  }
  fprintf(stderr, "usage: rx-sender flood IFACE COUNT MSAPS [SECONDS] | neighbour IFACE INTERVAL TTL SECONDS"
                  " | ask SOCKET SECONDS\n");
  return 2;
}
