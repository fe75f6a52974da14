/* The least a receiver can do: counts the LLDP frames of one interface and nothing else, to
 * show what receiving costs on this machine. The same socket set-up as the agent (filter
 * program, group address, the same ring), then either the memory-mapped ring or, to compare,
 * batched receives (recvmmsg) or one receive per frame. Runs until SIGTERM or SIGINT, then
 * prints "frames N drops D".
 *
 *   ring-reader IFACE [ring|recvmmsg|recv] [BLOCK_BYTES BLOCKS]
 */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

static volatile sig_atomic_t stop;
static void onSignal(int s) { (void)s; stop = 1; }

static int openSocket(const char* iface, int ring, unsigned blockBytes, unsigned blocks, uint8_t** map) {
  const int fd = socket(AF_PACKET, SOCK_RAW, 0);
  if (fd < 0) { perror("socket"); exit(2); }
  /* LLDP to 01-80-C2-00-00-0E, untagged or with one 802.1Q tag. */
  struct sock_filter code[] = {
      {0x20, 0, 0, 2}, {0x15, 0, 8, 0xc200000e}, {0x28, 0, 0, 0}, {0x15, 0, 6, 0x0180},
      {0x28, 0, 0, 12}, {0x15, 3, 0, 0x88cc}, {0x15, 0, 3, 0x8100}, {0x28, 0, 0, 16},
      {0x15, 0, 1, 0x88cc}, {0x06, 0, 0, 0xffff}, {0x06, 0, 0, 0}};
  struct sock_fprog prog = {sizeof code / sizeof code[0], code};
  if (setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &prog, sizeof prog) != 0) { perror("filter"); exit(2); }
  if (ring) {
    const int version = TPACKET_V3;
    if (setsockopt(fd, SOL_PACKET, PACKET_VERSION, &version, sizeof version) != 0) { perror("version"); exit(2); }
    struct tpacket_req3 req = {0};
    req.tp_block_size = blockBytes;
    req.tp_block_nr = blocks;
    req.tp_frame_size = 2048;
    req.tp_frame_nr = blockBytes / 2048 * blocks;
    req.tp_retire_blk_tov = 4;
    if (setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &req, sizeof req) != 0) { perror("ring"); exit(2); }
    *map = mmap(NULL, (size_t)blockBytes * blocks, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (*map == MAP_FAILED) { perror("mmap"); exit(2); }
  }
  const int index = (int)if_nametoindex(iface);
  struct packet_mreq mreq = {0};
  mreq.mr_ifindex = index;
  mreq.mr_type = PACKET_MR_MULTICAST;
  mreq.mr_alen = 6;
  memcpy(mreq.mr_address, "\x01\x80\xc2\x00\x00\x0e", 6);
  setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &mreq, sizeof mreq);
  struct sockaddr_ll addr = {0};
  addr.sll_family = AF_PACKET;
  addr.sll_protocol = htons(3);
  addr.sll_ifindex = index;
  if (!index || bind(fd, (struct sockaddr*)&addr, sizeof addr) != 0) { perror(iface); exit(2); }
  return fd;
}

static unsigned long drops(int fd) {
  struct tpacket_stats_v3 st = {0};
  socklen_t length = sizeof st;
  getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &st, &length);
  return st.tp_drops;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: ring-reader IFACE [ring|recvmmsg|recv] [BLOCK_BYTES BLOCKS]\n");
    return 2;
  }
  const char* mode = argc > 2 ? argv[2] : "ring";
  const unsigned blockBytes = argc > 4 ? (unsigned)atoi(argv[3]) : 16384;
  const unsigned blocks = argc > 4 ? (unsigned)atoi(argv[4]) : 4;
  const int ring = strcmp(mode, "ring") == 0;
  struct sigaction sa = {0};
  sa.sa_handler = onSignal;
  sigaction(SIGTERM, &sa, NULL);
  sigaction(SIGINT, &sa, NULL);
  uint8_t* map = NULL;
  const int fd = openSocket(argv[1], ring, blockBytes, blocks, &map);
  unsigned long frames = 0, dropped = 0;
  unsigned block = 0;
  static uint8_t buffers[64][2048];
  struct mmsghdr msgs[64];
  struct iovec iov[64];
  for (int i = 0; i < 64; ++i) {
    iov[i].iov_base = buffers[i];
    iov[i].iov_len = sizeof buffers[i];
    memset(&msgs[i], 0, sizeof msgs[i]);
    msgs[i].msg_hdr.msg_iov = &iov[i];
    msgs[i].msg_hdr.msg_iovlen = 1;
  }
  printf("ready\n");
  fflush(stdout);
  while (!stop) {
    struct pollfd p = {fd, POLLIN, 0};
    if (poll(&p, 1, 100) <= 0) continue;
    if (ring) {
      for (;;) {
        struct tpacket_block_desc* bd = (struct tpacket_block_desc*)(map + (size_t)block * blockBytes);
        if (!(__atomic_load_n(&bd->hdr.bh1.block_status, __ATOMIC_ACQUIRE) & TP_STATUS_USER)) break;
        frames += bd->hdr.bh1.num_pkts;
        __atomic_store_n(&bd->hdr.bh1.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
        block = (block + 1) % blocks;
      }
    } else if (strcmp(mode, "recvmmsg") == 0) {
      int n;
      while ((n = recvmmsg(fd, msgs, 64, MSG_DONTWAIT, NULL)) > 0) frames += (unsigned long)n;
    } else {
      while (recv(fd, buffers[0], sizeof buffers[0], MSG_DONTWAIT) >= 0) ++frames;
    }
  }
  dropped += drops(fd);
  printf("frames %lu drops %lu\n", frames, dropped);
  return 0;
}
