/*
 * The C interface in one page: a tone into a WAV file, a row of frames into an OVX file.
 *
 *     example_write_files FOLDER
 */
#include <MuxoraAPI.h>
#include <stdio.h>
#include <string.h>

enum { SAMPLES = 320, WAV_FRAMES = 100, VIDEO_FRAMES = 50 };

/* Output: each block goes to its position, or behind the bytes before it. */
static int32_t write_block(const MXOutputBlock* block, void* user) {
    FILE* file = (FILE*)user;
    if (block->seek_type == MX_SEEK_ABSOLUTE) fseek(file, (long)block->offset, SEEK_SET);
    fwrite(block->data, 1, block->length, file);
    return 0;
}

static MXHandle open_handle(uint32_t format, FILE* file) {
    MXCreateParam param;
    memset(&param, 0, sizeof param);
    param.user = file;
    param.output = write_block;
    return MX_CreateHandle(format, &param);
}

/* Writes the tail, gives everything back and tells whether all went well. */
static int finish(const char* path, MXHandle handle, FILE* file, uint32_t result) {
    if (result == MX_OK) result = MX_CreateTailer(handle, NULL);
    MX_DestroyHandle(handle);
    fseek(file, 0, SEEK_END);
    printf("%s: %ld bytes, result %u\n", path, ftell(file), (unsigned)result);
    fclose(file);
    return result == MX_OK;
}

static int write_wav(const char* path) {
    FILE* file = fopen(path, "wb");
    int16_t tone[SAMPLES];
    MXFrameInfo frame;
    MXHandle handle;
    uint32_t result;
    int i;

    if (file == NULL) return 0;
    for (i = 0; i < SAMPLES; ++i)
        tone[i] = (int16_t)((i % 16 < 8) ? 8000 : -8000);
    memset(&frame, 0, sizeof frame);
    frame.size = sizeof frame;
    frame.frame_pointer = tone;
    frame.frame_size = sizeof tone;
    frame.frame_type = MX_FRAME_AUDIO;
    frame.encode_type = MX_AUDIO_PCM16;

    handle = open_handle(MX_FORMAT_WAV, file);
    result = MX_CreateHeader(handle, NULL);
    for (i = 0; i < WAV_FRAMES && result == MX_OK; ++i)
        result = MX_InputFrame(handle, &frame);
    return finish(path, handle, file, result);
}

static int write_ovx(const char* path) {
    FILE* file = fopen(path, "wb");
    uint8_t picture[4000];
    MXHeaderInfo info;
    MXFrameInfo frame;
    MXHandle handle;
    uint32_t result;
    uint32_t i;

    if (file == NULL) return 0;
    memset(picture, 0x55, sizeof picture);
    memset(&info, 0, sizeof info);
    memset(&frame, 0, sizeof frame);
    frame.size = sizeof frame;
    frame.frame_pointer = picture;
    frame.frame_size = sizeof picture;
    frame.frame_type = MX_FRAME_VIDEO;
    frame.encode_type = MX_VIDEO_H264;
    frame.width = 640;
    frame.height = 480;
    frame.frame_rate = 25;

    handle = open_handle(MX_FORMAT_OVX, file);
    result = MX_CreateHeader(handle, &info);
    for (i = 0; i < VIDEO_FRAMES && result == MX_OK; ++i) {
        frame.frame_sub_type = i % 25 == 0 ? MX_SUB_I : MX_SUB_P;
        frame.timestamp = 1000 + i * 40;
        result = MX_InputFrame(handle, &frame);
    }
    return finish(path, handle, file, result);
}

int main(int argc, char** argv) {
    char path[1024];
    int ok = 1;

    if (argc != 2) {
        fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    printf("%s\n", MX_GetVersion());
    snprintf(path, sizeof path, "%s/tone.wav", argv[1]);
    ok &= write_wav(path);
    snprintf(path, sizeof path, "%s/frames.ovx", argv[1]);
    ok &= write_ovx(path);
    return ok ? 0 : 1;
}
