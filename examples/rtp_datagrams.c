/*
 * Sends an elementary stream as RTP over UDP: what docs/RTP.md tells, as a program. C99 and POSIX sockets.
 *
 *     example_rtp_datagrams CODEC PORT FILE...
 *
 * CODEC is h264, h265, jpeg or aac. An H.264, H.265 or ADTS file is cut into access units; of JPEG, each file is one
 * picture. The datagrams go to 127.0.0.1, 25 pictures a second or one frame of sound after the other, as fast as they
 * are made.
 */
#define _POSIX_C_SOURCE 200112L

#include <MuxoraExt.h>
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

/* [datagram] */
struct sender {
    int socket;
    int prefixed; /* a length of two bytes stands in front of each packet */
    unsigned long datagrams;
};

static int32_t send_block(const MXOutputBlock* block, void* user) {
    struct sender* to = user;
    const unsigned char* packet = block->data;
    uint32_t length = block->length;
    if (to->prefixed) packet += 2, length -= 2; /* H.264, MPEG-4 and sound: the length is for TCP */
    to->datagrams += send(to->socket, packet, length, 0) == (ssize_t)length;
    return 0;
}
/* [datagram] */

static int connect_udp(const char* port) {
    struct sockaddr_in address;
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons((uint16_t)atoi(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return connect(fd, (struct sockaddr*)&address, sizeof address) == 0 ? fd : -1;
}

/* A file with a byte to spare: the last fragment of an H.264 frame carries the byte behind it. */
static unsigned char* read_file(const char* path, uint32_t* length) {
    unsigned char* bytes = NULL;
    FILE* file = fopen(path, "rb");
    if (file == NULL) return NULL;
    if (fseek(file, 0, SEEK_END) == 0) {
        const long size = ftell(file);
        rewind(file);
        if (size > 0 && (bytes = calloc((size_t)size + 1, 1)) != NULL) {
            *length = (uint32_t)fread(bytes, 1, (size_t)size, file);
        }
    }
    fclose(file);
    return bytes;
}

static int pack_stream(MXHandle rtp, const unsigned char* bytes, uint32_t length, uint32_t type, uint32_t codec) {
    /* One call takes one access unit. H.265 over RTP knows 00 00 00 01 as a start code only. */
    MXAccessUnits units = MX_CreateAccessUnits(type, codec, MX_UNITS_LONG_START_CODES);
    MXAccessUnit unit = {0};
    MXFrameInfo frame;
    uint64_t number = 0;
    int good = MX_PutBytes(units, bytes, length) == MX_OK;
    int ended = 0;
    unit.size = sizeof unit;
    while (good) {
        if (MX_GetAccessUnit(units, &unit) != MX_OK) {
            if (ended++) break;
            MX_EndAccessUnits(units);
            continue;
        }
        MXFrameFromAccessUnit(&frame, &unit);
        /* 0 means "not given", so the first frame is at 1000 ms. */
        frame.timestamp =
            (uint32_t)(1000 + (type == MX_FRAME_VIDEO ? number++ * 40
                                                      : number++ * unit.samples * 1000 / unit.samples_per_sec));
        good = MX_InputFrame(rtp, &frame) == MX_OK;
    }
    MX_DestroyAccessUnits(units);
    return good;
}

static int pack_picture(MXHandle rtp, unsigned char* bytes, uint32_t length, uint32_t number) {
    MXFrameInfo frame;
    memset(&frame, 0, sizeof frame);
    frame.size = sizeof frame;
    frame.frame_pointer = bytes;
    frame.frame_size = length;
    frame.frame_type = MX_FRAME_VIDEO;
    frame.frame_sub_type = MX_SUB_I;
    frame.encode_type = MX_VIDEO_MJPEG;
    frame.timestamp = 1000 + 40 * number;
    return MX_InputFrame(rtp, &frame) == MX_OK;
}

int main(int argc, char** argv) {
    struct sender to = {-1, 0, 0};
    MXCreateParam create = {0};
    MXHeaderInfo header = {0};
    MXRtpParam param = {0};
    MXHandle rtp;
    uint32_t type = MX_FRAME_VIDEO;
    uint32_t codec = 0;
    int good;
    int i;
    if (argc >= 4) {
        if (strcmp(argv[1], "h264") == 0) codec = MX_VIDEO_H264;
        if (strcmp(argv[1], "h265") == 0) codec = MX_VIDEO_H265;
        if (strcmp(argv[1], "jpeg") == 0) codec = MX_VIDEO_MJPEG;
        if (strcmp(argv[1], "aac") == 0) type = MX_FRAME_AUDIO, codec = MX_AUDIO_AAC;
        to.socket = connect_udp(argv[2]);
    }
    if (codec == 0 || to.socket < 0) {
        fprintf(stderr, "usage: %s h264|h265|jpeg|aac PORT FILE...\n", argv[0]);
        return 2;
    }
    to.prefixed = codec != MX_VIDEO_H265 && codec != MX_VIDEO_MJPEG;
    create.user = &to;
    create.output = send_block;
    rtp = MX_CreateHandle(MX_FORMAT_RTP, &create);
    param.size = sizeof param;
    param.max_rtp_packet_length = 1400;
    param.rtp_payload_type = codec == MX_VIDEO_MJPEG ? 26 : 96;
    param.rtp_ssrc = 1;
    param.rtp_audio_payload_type = 97;
    param.rtp_audio_ssrc = 2;
    param.rtp_audio_sample = 48000;
    good = MX_SetParam(rtp, MX_PARAM_RTP, &param, sizeof param) == MX_OK && MX_CreateHeader(rtp, &header) == MX_OK;
    for (i = 3; i < argc && good; ++i) {
        uint32_t length = 0;
        unsigned char* bytes = read_file(argv[i], &length);
        good = bytes != NULL && (codec == MX_VIDEO_MJPEG ? pack_picture(rtp, bytes, length, (uint32_t)(i - 3))
                                                         : pack_stream(rtp, bytes, length, type, codec));
        free(bytes);
    }
    MX_DestroyHandle(rtp);
    close(to.socket);
    printf("%lu datagrams\n", to.datagrams);
    return good ? 0 : 1;
}
