/** @file
 * Muxora: the C interface.
 *
 * A handle packs one stream: encoded frames go in one at a time, the bytes of a container or of a transport stream
 * come out through a callback, synchronously, on the calling thread. The header is valid C99 and C++17.
 *
 *     MX_CreateHandle -> MX_SetParam / MX_SetEncryptType (when wanted) -> MX_CreateHeader
 *         -> MX_InputFrame for each frame -> MX_CreateTailer -> MX_DestroyHandle
 *
 * A handle belongs to one thread at a time. There is one exception: on the MP4 and MOV family MX_GetBackup may run on
 * a second thread while frames go in on the first.
 *
 * One call of MX_InputFrame takes one access unit: a whole picture with the parameter sets ahead of it, or one frame of
 * sound. NAL unit by NAL unit every call succeeds and the result is wrong. MX_CreateAccessUnits (MuxoraExt.h) cuts a
 * stream into access units.
 *
 * What a block of RTP holds depends on the codec; `length` is two bytes, big-endian, and counts the packet:
 *
 *     H.264, MPEG-4, sound of each codec    length, packet        with custom data: custom data, length, packet
 *     H.265, motion JPEG                    packet                with custom data: custom data, length, packet
 *
 * So a datagram is the block without its first two bytes, but with H.265 and JPEG the block itself:
 *
 *     const unsigned char* packet = block->data;
 *     uint32_t length = block->length;
 *     if (codec != MX_VIDEO_H265 && codec != MX_VIDEO_MJPEG) packet += 2, length -= 2;
 *     send(socket, packet, length, 0);
 *
 * Custom data of two bytes, '$' and the channel, makes each block an interleaved frame of RTSP (RFC 2326 10.12).
 * docs/RTP.md has more.
 *
 * All records are packed to 4-byte boundaries; integers are in the byte order of the machine, which is little-endian on
 * every supported platform.
 */
#ifndef MUXORA_API_H
#define MUXORA_API_H

#include <stdint.h> /* NOLINT(modernize-deprecated-headers): C reads it, too */

/* Exported while the library itself is built (MUXORA_BUILDING), imported elsewhere, and neither where it is linked
 * statically (MUXORA_STATIC_DEFINE; the CMake package and the pkg-config file of a static build define it). */
#if defined(MUXORA_STATIC_DEFINE)
#define MX_API
#elif defined(_WIN32) && defined(MUXORA_BUILDING)
#define MX_API __declspec(dllexport)
#elif defined(_WIN32)
#define MX_API __declspec(dllimport)
#elif defined(__GNUC__)
#define MX_API __attribute__((visibility("default")))
#else
#define MX_API
#endif

#ifdef __cplusplus
#define MX_NOEXCEPT noexcept
extern "C" {
#else
#define MX_NOEXCEPT
#endif

/* ------------------------------------------------------------------------------------------------ numbers */

/** Result of every function that returns a status. */
enum MXResult {
    MX_OK = 0,            /**< Done. */
    MX_NULL_HANDLE = 1,   /**< The handle is null. */
    MX_FAILED = 3,        /**< A bad argument, a wrong order of calls, or an operation that failed. */
    MX_NO_RESOURCES = 4,  /**< Setup failed or memory ran out. */
    MX_FRAME_REFUSED = 5, /**< The format does not take this frame: its type, codec or audio parameters. */
    MX_NULL_RECORD = 6    /**< A required record is null. */
};

/** Output formats: the first argument of MX_CreateHandle. */
enum MXFormat {
    MX_FORMAT_MP4 = 0,         /**< MP4 (ISO/IEC 14496-14); index behind the media unless a gap is reserved. */
    MX_FORMAT_ASF = 1,         /**< ASF file: header and index are written by the tailer. */
    MX_FORMAT_AVI = 2,         /**< AVI with OpenDML indexes past 1 GiB. */
    MX_FORMAT_OVX = 3,         /**< OVX, the native unit format. */
    MX_FORMAT_FLV = 4,         /**< FLV file: the tailer rewrites its head. */
    MX_FORMAT_ASF_STREAM = 5,  /**< ASF without a tail, forward only. */
    MX_FORMAT_MOV = 6,         /**< QuickTime movie. */
    MX_FORMAT_3GP = 7,         /**< 3GP; made by the file component only, MX_CreateHandle refuses it. */
    MX_FORMAT_FLV_STREAM = 8,  /**< FLV, forward only. */
    MX_FORMAT_RTP = 9,         /**< RTP packets (RFC 3550). */
    MX_FORMAT_TS = 10,         /**< MPEG-2 transport stream (ISO/IEC 13818-1). */
    MX_FORMAT_PS = 11,         /**< MPEG-2 program stream, plain dialect. */
    MX_FORMAT_MP4_NOSEEK = 12, /**< MP4 with one media box a sample: never goes back. */
    MX_FORMAT_MKV = 13,        /**< Matroska; positions have 32 bits, so a file has to stay below 4 GiB. */
    MX_FORMAT_MP4_64 = 14,     /**< MP4 with 64-bit offsets. */
    MX_FORMAT_MOV_64 = 15,     /**< QuickTime movie with 64-bit offsets. */
    MX_FORMAT_WAV = 16,        /**< RIFF/WAVE. */
    MX_FORMAT_PS_OV = 17,      /**< Program stream, dialect with descriptors in its map. */
    MX_FORMAT_PS_GAYS = 18,    /**< Program stream, GAYS dialect. */
    MX_FORMAT_OVX_ALT = 19,    /**< OVX under its second number: the same bytes as MX_FORMAT_OVX. */
    MX_FORMAT_PS_GD = 20       /**< Program stream, GD dialect. */
};

/** MXFrameInfo::frame_type. */
enum MXFrameType {
    MX_FRAME_VIDEO = 1,  /**< Video in Annex-B form (H.264, H.265), or as the codec's standard has it. */
    MX_FRAME_AUDIO = 2,  /**< Audio; AAC in ADTS framing. */
    MX_FRAME_PRIVATE = 3 /**< Private data; taken by OVX and the MP4 family, which give it no track. */
};

/** MXFrameInfo::frame_sub_type: the kind of a video picture. */
enum MXFrameSubType {
    MX_SUB_I = 0,            /**< Intra picture, key frame. */
    MX_SUB_P = 1,            /**< Predicted picture. */
    MX_SUB_B = 2,            /**< Bi-predicted picture. */
    MX_SUB_OTHER = 3,        /**< A fourth kind without meaning attached. */
    MX_SUB_KEY = 8,          /**< Key frame of another kind; some formats do not index it. */
    MX_SUB_LAYERED_KEY = 18, /**< Key frame, first layered kind. */
    MX_SUB_LAYERED_P = 19,   /**< Predicted picture of the layered kind. */
    MX_SUB_LAYERED_KEY2 = 20 /**< Key frame, second layered kind. */
};

/** MXFrameInfo::encode_type on a video frame. */
enum MXVideoCodec {
    MX_VIDEO_MPEG4 = 1,           /**< MPEG-4 part 2 (ISO/IEC 14496-2). */
    MX_VIDEO_H264 = 2,            /**< H.264 (ITU-T H.264), Annex B. */
    MX_VIDEO_MJPEG = 3,           /**< Motion JPEG. */
    MX_VIDEO_H264_ALT = 4,        /**< H.264 under its second number; differs in OVX's and PS's codec code only. */
    MX_VIDEO_H264_STREAM = 8,     /**< H.264 with stream type 0x1B; mapped by the program and transport streams only. */
    MX_VIDEO_MPEG2 = 9,           /**< MPEG-2 video (ISO/IEC 13818-2). */
    MX_VIDEO_STREAM_TYPE_80 = 11, /**< The video kind with stream type 0x80. */
    MX_VIDEO_H265 = 12,           /**< H.265 (ITU-T H.265), Annex B. */
    MX_VIDEO_OVX_CODEC_13 = 35,   /**< The video kind with OVX codec byte 13. */
    MX_VIDEO_STREAM_TYPE_B0 = 129 /**< The video kind with stream type 0xB0 and OVX codec byte 14. */
};

/** MXFrameInfo::encode_type on an audio frame. */
enum MXAudioCodec {
    MX_AUDIO_PCM8 = 7,            /**< 8-bit PCM. */
    MX_AUDIO_STREAM_TYPE_99 = 8,  /**< The audio kind with stream type 0x99 and WAVE tag 68. */
    MX_AUDIO_MULAW_ALT = 10,      /**< WAVE tag 7, as MX_AUDIO_MULAW. */
    MX_AUDIO_WAVE_TAG_64 = 11,    /**< WAVE tag 64. */
    MX_AUDIO_WAVE_TAG_2 = 13,     /**< WAVE tag 2. */
    MX_AUDIO_ALAW = 14,           /**< G.711 A-law. */
    MX_AUDIO_WAVE_TAG_4201 = 15,  /**< WAVE tag 0x4201. */
    MX_AUDIO_PCM16 = 16,          /**< 16-bit PCM, little-endian. */
    MX_AUDIO_MULAW = 22,          /**< G.711 mu-law. */
    MX_AUDIO_WAVE_TAG_20 = 23,    /**< WAVE tag 20. */
    MX_AUDIO_STREAM_TYPE_93 = 25, /**< The audio kind with stream type 0x93. */
    MX_AUDIO_AAC = 26,            /**< AAC in ADTS framing (ISO/IEC 13818-7). */
    MX_AUDIO_MPEG = 31,           /**< MPEG audio (ISO/IEC 11172-3, 13818-3). */
    MX_AUDIO_STREAM_TYPE_92 = 34  /**< The audio kind with stream type 0x92. */
};

/** Which table MX_GetPacketCapacity gives. */
enum MXCapacityType { MX_CAPACITY_VIDEO = 0, MX_CAPACITY_AUDIO = 1 };

/** MXOutputBlock::seek_type. */
enum MXSeekType {
    MX_SEEK_ABSOLUTE = 0, /**< `offset` is an absolute position in the output. */
    MX_SEEK_NEXT = 1      /**< No position: the bytes follow the bytes before. */
};

/** The type argument of MX_SetParam and MX_GetParam. */
enum MXParamType { MX_PARAM_RTP = 0 };

/** The type argument of MX_SetEncryptType. */
enum MXEncryptType { MX_ENCRYPT_AES = 0 };

/** MXHeaderInfo::start_time_ms: no start time is stated. */
#define MX_NO_START_TIME 0xFFFFFFFFu

/** What a caller that compares the versions of header and library should say when they differ. */
#define MX_VERSION_MISMATCH_TEXT "<MuxoraAPI> not match! May cause unknown exception, Please update!\n"

/* ------------------------------------------------------------------------------------------------ records */

#pragma pack(push, 4)

/**
 * One finished piece of output, 32 bytes. The record and the bytes are valid only during the call of `output`.
 *
 * The packager reads `length` back after the call and takes it for the number of bytes written. A sink that could not
 * take everything may lower it (through a cast; the object itself is not constant): the running position then advances
 * by that much.
 */
typedef struct MXOutputBlock {
    uint32_t size;      /**< Always 32. */
    const void* data;   /**< The bytes; library memory. */
    uint32_t length;    /**< Number of bytes. */
    uint32_t seek_type; /**< MXSeekType. */
    uint32_t offset32;  /**< Low 32 bits of `offset`, for 32-bit receivers; 0 with MX_SEEK_NEXT. */
    int64_t offset;     /**< Position of the first byte in the output; 0 with MX_SEEK_NEXT. */
} MXOutputBlock;

/**
 * Takes a block of output. `user` is the value of MXCreateParam::user. The result is not read.
 *
 * The callback must not come back to the handle: what it calls on it answers MX_FAILED and changes nothing,
 * MX_DestroyHandle included. MX_GetBackup alone may be called; its snapshot counts the block that is being given. An
 * exception that it throws ends in the library. The block then counts as taken, with the length that stands in it; the
 * call goes on to its end and answers MX_FAILED where it would have answered MX_OK. The handle stays sound, and the
 * next frame may be given.
 */
typedef int32_t (*MXOutputFunction)(const MXOutputBlock* block, void* user);

/** Gives a buffer of `size` bytes, or null. Not to come back to the handle either; an exception counts as null. */
typedef void* (*MXAllocFunction)(int32_t size);

/** Takes back a buffer that MXAllocFunction gave, with its size in bytes. */
typedef void (*MXFreeFunction)(void* buffer, uint32_t size);

/**
 * Options of MX_CreateHandle, 36 bytes. Each member that is not null replaces a default; a null member keeps it.
 * `alloc` and `free` serve the large work buffers of ASF, FLV, MKV, RTP and TS only, and come as a pair.
 */
typedef struct MXCreateParam {
    uint32_t size;           /**< Not read. */
    void* user;              /**< Given back as the second argument of `output`. Default null. */
    MXAllocFunction alloc;   /**< Default: the global allocator. */
    MXFreeFunction free;     /**< Default: the global release. */
    MXOutputFunction output; /**< Default: the output is dropped. */
} MXCreateParam;

/** One block of a split picture, 16 bytes; OVX stores it as it stands. Positions are in pixels. */
typedef struct MXBlockInfo {
    uint16_t left;        /**< Left edge. */
    uint16_t top;         /**< Upper edge. */
    uint16_t right;       /**< Right edge. */
    uint16_t bottom;      /**< Lower edge. */
    uint32_t data_offset; /**< Where the block's data begins in the frame, in bytes. */
    uint32_t reserved;    /**< 0. */
} MXBlockInfo;

/**
 * One encoded frame, 264 bytes. Zero the record, then fill what applies: zero means "not given" wherever a default
 * exists.
 *
 * The frame is read in place and stays the caller's. Four cases change it: OVX encrypts a stretch in place
 * (MX_SetEncryptType), RTP swaps the bytes of 16-bit PCM, MKV turns the start codes of H.264 into lengths, and ASF and
 * MKV move `frame_pointer` and `frame_size` of the record past an MPEG-4 configuration. MKV takes 00 00 00 01 for a
 * start code only, not the shorter 00 00 01. A buffer that several handles take goes to MKV last.
 *
 * RTP wants one readable byte behind the end of each H.264 frame: the last fragment of a frame carries it.
 */
typedef struct MXFrameInfo {
    uint32_t size;                 /**< Must be 264 (sizeof). */
    void* frame_pointer;           /**< The encoded frame. */
    uint32_t frame_size;           /**< Its length in bytes. */
    uint32_t frame_type;           /**< MXFrameType. */
    uint32_t frame_sub_type;       /**< MXFrameSubType; video only. */
    uint32_t encode_type;          /**< MXVideoCodec on a video frame, MXAudioCodec on an audio frame. */
    uint32_t timestamp;            /**< Presentation time in milliseconds; 0: derived from the rates. */
    uint32_t utc_time;             /**< Wall clock in seconds since 1970; 0: not given. */
    uint32_t width;                /**< Picture width in pixels. */
    uint32_t height;               /**< Picture height in pixels. */
    uint32_t frame_rate;           /**< Frames per second; 0 counts as 25 where a rate is needed. */
    uint32_t deinterlace;          /**< 0 or 1. */
    uint32_t samples_per_sec;      /**< Audio sample rate in Hz. */
    uint32_t bits_per_sample;      /**< Audio sample width in bits. */
    uint32_t channels;             /**< Audio channel count. */
    uint32_t bitrate;              /**< Audio bit rate in bits per second. */
    uint16_t reserved0;            /**< Not read. */
    uint16_t encrypt_offset;       /**< First byte of the stretch to encrypt. */
    uint32_t encrypt_length;       /**< Length of that stretch in bytes; less than 16 encrypts nothing. */
    uint32_t frame_seq;            /**< The caller's sequence number; non-zero replaces OVX's own. */
    uint32_t ps_clock_rebase;      /**< 1 on an audio frame: PS and TS re-base the audio clock at the next key frame. */
    uint8_t reserved1[148];        /**< Not read. */
    uint8_t svc_head_0;            /**< First byte of OVX's exSVChead; non-zero switches the record on. */
    uint8_t svc_head_1;            /**< Second byte of that record. */
    uint8_t ma_total_channels;     /**< Channels of a multi-channel stream; OVX records it when above 1. */
    uint8_t ma_cur_channel;        /**< Channel of this frame; ASF, FLV and MP4 keep the first one only. */
    uint32_t has_blocks;           /**< Non-zero: `blocks` describes a split picture. */
    uint32_t n_slice;              /**< Block columns. */
    uint32_t m_slice;              /**< Block rows. */
    const MXBlockInfo* blocks;     /**< `n_slice` times `m_slice` records; the caller's memory. */
    uint32_t rotation_angle;       /**< Rotation of the picture; OVX writes the low byte on key frames. */
    uint16_t tp_company_type;      /**< Code of the company that the stream comes from; 0: none. */
    uint16_t tp_stream_header_len; /**< Length of that company's stream header in bytes. */
} MXFrameInfo;

/**
 * What is known of the streams ahead of the first frame: the optional record of MX_CreateHeader, 276 bytes. Zero it,
 * then fill what applies. OVX and RTP require it; the other formats take null.
 */
typedef struct MXHeaderInfo {
    uint32_t size;              /**< Not read. */
    uint32_t video_present;     /**< AVI, TS: non-zero: there is video. */
    uint32_t video_encode_type; /**< AVI, TS: MXVideoCodec. */
    uint32_t width;             /**< AVI: picture width in pixels. */
    uint32_t height;            /**< AVI: picture height in pixels. */
    int32_t frame_rate;         /**< AVI, TS: frames per second. */
    uint8_t reserved0[108];     /**< Not read. */
    uint32_t audio_present;     /**< AVI, TS: non-zero: there is audio. */
    uint32_t audio_encode_type; /**< AVI, TS: MXAudioCodec. */
    uint32_t channels;          /**< AVI: channel count. */
    uint32_t bits_per_sample;   /**< AVI: sample width in bits. */
    uint32_t samples_per_sec;   /**< AVI: sample rate in Hz. */
    uint8_t reserved1[108];     /**< Not read. */
    uint32_t reserved_gap;      /**< MP4 family: bytes reserved in front for the index, so that it need not go last. */
    uint32_t start_time_ms;     /**< TS: time of the stream's start in ms, MX_NO_START_TIME for none. */
    uint32_t self_timed;        /**< OVX: non-zero: dates come from OVX's own clock, utc_time is ignored. */
    uint32_t resync_period;     /**< OVX: non-zero: seconds after which that clock is set again. */
} MXHeaderInfo;

/** Parameters of an RTP handle, 96 bytes: the record of MX_SetParam and MX_GetParam. */
typedef struct MXRtpParam {
    uint32_t size;                        /**< Get: 96. */
    uint32_t max_rtp_packet_length;       /**< Largest packet in bytes; 0 reads as 1000. */
    uint32_t rtp_sequence_number;         /**< Video sequence number used last, in 16 bits. */
    uint32_t rtp_timestamp;               /**< RTP time of the first video frame. */
    uint32_t rtp_ssrc;                    /**< Video SSRC. */
    uint32_t rtp_audio_sample;            /**< Audio clock rate in Hz; should be a multiple of 1000. */
    uint32_t rtp_payload_type;            /**< Video payload type. */
    uint32_t reserved0;                   /**< Not read. */
    const void* rtp_extension_data;       /**< Header extension; copied. Get: the stored copy. */
    uint32_t rtp_extension_data_length;   /**< Its length in bytes. */
    uint32_t reserved1;                   /**< Not read. */
    const void* rtp_custom_data;          /**< Video custom data, ahead of each packet and its length, see the top of
                                               this header; copied. Get: the copy, if this was not null. */
    uint32_t rtp_custom_data_length;      /**< Its length in bytes; the low 8 bits are stored. */
    uint32_t rtp_packet_output_all_flag;  /**< 1: one block holds all the packets of a frame. */
    uint32_t rtp_audio_payload_type;      /**< Audio payload type. */
    uint32_t reserved2;                   /**< Not read. */
    const void* rtp_audio_custom_data;    /**< Audio custom data; copied when its length is below 5. Not returned. */
    uint8_t rtp_audio_custom_data_length; /**< Its length in bytes. Not returned. */
    uint8_t reserved3[3];                 /**< Not read. */
    uint32_t rtp_audio_sequence_number;   /**< Audio sequence number used last, in 16 bits. */
    uint32_t rtp_audio_timestamp;         /**< RTP time of the first audio frame. */
    uint32_t rtp_audio_ssrc;              /**< Audio SSRC. */
} MXRtpParam;

/** One codec that a format advertises, 32 bytes. 0 in a field means any. */
typedef struct MXCapacityEntry {
    uint32_t codec;           /**< MXVideoCodec or MXAudioCodec (public numbers from the components). */
    uint32_t samples_per_sec; /**< Sample rate in Hz. */
    uint32_t bits_per_sample; /**< Sample width in bits. */
    uint32_t channels;        /**< Channel count. */
    uint32_t reserved[4];     /**< 0. */
} MXCapacityEntry;

#pragma pack(pop)

/** An opaque packager. */
typedef void* MXHandle;

/* ---------------------------------------------------------------------------------------------- functions */

/**
 * Makes a packager. It is initialised by MX_CreateHeader, not here.
 *
 * @param format MXFormat. MX_FORMAT_3GP and numbers above 20 are refused.
 * @param param  Options, copied; null keeps every default.
 * @return The handle, which MX_DestroyHandle releases, or null: unknown format, or memory ran out.
 */
MX_API MXHandle MX_CreateHandle(uint32_t format, const MXCreateParam* param) MX_NOEXCEPT;

/**
 * Releases a packager and all its memory. Writes nothing: call MX_CreateTailer before.
 *
 * @return MX_OK, MX_NULL_HANDLE, or MX_FAILED from inside a callback of this handle, which then stays.
 */
MX_API uint32_t MX_DestroyHandle(MXHandle handle) MX_NOEXCEPT;

/**
 * Starts the stream: sets the packager up and writes the container's head where the format has one. Call it exactly
 * once, before the first frame.
 *
 * @param info What is known of the streams; null is refused by OVX and RTP.
 * @return MX_OK, MX_NULL_HANDLE, MX_NO_RESOURCES when memory for the format's parts ran out, or MX_FAILED: also when
 *         there is none for the head, or MXCreateParam::alloc gave none. It may then be called again.
 */
MX_API uint32_t MX_CreateHeader(MXHandle handle, MXHeaderInfo* info) MX_NOEXCEPT;

/**
 * Packs one frame. Whatever is finished goes to the output callback before the function returns. Frames come in
 * presentation order for each stream, audio and video interleaved as they arrive. After a failure the next frame may
 * be given.
 *
 * @param frame The frame; see MXFrameInfo for the cases in which it is changed.
 * @return MX_OK, MX_NULL_HANDLE, MX_FAILED (null frame, wrong `size`, no data, wrong order of calls, no room),
 *         MX_NO_RESOURCES (memory ran out, or an RTP audio frame beyond its scratch area), MX_FRAME_REFUSED, or
 *         MX_NULL_RECORD. Some formats drop a frame that comes before the first key frame and return MX_OK; so does
 *         AVI with a frame whose pointer is null.
 *
 * When memory runs out the frame is as if it had not been given, and the result is MX_NO_RESOURCES, but: the PS formats
 * answer MX_FRAME_REFUSED; TS answers MX_FAILED if MXCreateParam::alloc gave no buffer; AVI and OVX lose the frame and
 * answer MX_OK, as receivers of live streams expect. RTP's time goes on for a frame that was lost, as does that of PS.
 */
MX_API uint32_t MX_InputFrame(MXHandle handle, MXFrameInfo* frame) MX_NOEXCEPT;

/**
 * Finishes the container: writes what the format has at its end and patches its head.
 *
 * @param unused Ignored.
 * @return MX_OK, MX_NULL_HANDLE, MX_NO_RESOURCES, or MX_FAILED: wrong order of calls, no memory for the index (the tail
 *         may then be asked for again), and on an RTP handle always: RTP has no tail.
 */
MX_API uint32_t MX_CreateTailer(MXHandle handle, void* unused) MX_NOEXCEPT;

/**
 * Sets the parameters of an RTP handle; also allowed between frames. On any other format, and for any other `type`, it
 * does nothing and returns MX_OK. Nothing is validated.
 *
 * @param type  MXParamType.
 * @param param The parameters; the data behind its pointers is copied.
 * @param size  Size of the record in bytes, at least 96.
 * @return MX_OK, MX_NULL_HANDLE, MX_FAILED (null record, or too small), or MX_NO_RESOURCES.
 */
MX_API uint32_t MX_SetParam(MXHandle handle, uint32_t type, const MXRtpParam* param, uint32_t size) MX_NOEXCEPT;

/**
 * Reads the parameters of an RTP handle. On any other format, and for any other `type`, sets `*size` to 0.
 *
 * @param type  MXParamType.
 * @param param Receives the parameters. Pointers in it refer to the library's copies, good until the next set.
 * @param size  In: size of the record in bytes, at least 96. Out: 96, or 0.
 * @return MX_OK, MX_NULL_HANDLE, or MX_FAILED (null argument, or too small).
 */
MX_API uint32_t MX_GetParam(MXHandle handle, uint32_t type, MXRtpParam* param, uint32_t* size) MX_NOEXCEPT;

/**
 * Sets or removes the cipher for frames that carry `encrypt_offset` and `encrypt_length` (AES in ECB mode, FIPS-197).
 * Only OVX encrypts. A null key or a length of 0 removes the cipher; a key length other than 16, 24 or 32 leaves
 * frames plain.
 *
 * @param type       MXEncryptType.
 * @param key        The key, copied.
 * @param key_length Its length in bytes.
 * @return MX_OK, MX_NULL_HANDLE, MX_FAILED (unknown type), or MX_NO_RESOURCES.
 */
MX_API uint32_t MX_SetEncryptType(MXHandle handle, uint32_t type, const void* key, uint32_t key_length) MX_NOEXCEPT;

/**
 * Tells which codecs the format advertises.
 *
 * @param capacity_type MXCapacityType.
 * @param table         Receives a pointer to MXCapacityEntry records, constant data of the library.
 * @param count         Receives their number.
 * @return MX_OK, MX_NULL_HANDLE, or MX_FAILED (null argument, unknown type).
 */
MX_API uint32_t MX_GetPacketCapacity(MXHandle handle, uint32_t capacity_type, const void** table,
                                     uint32_t* count) MX_NOEXCEPT;

/** The library's version, "[version] KMPT " and the build date; constant memory of the library. */
MX_API const char* MX_GetVersion(void) MX_NOEXCEPT;

/**
 * Gives a snapshot of the index of an MP4 or MOV recording: written at the stated position, it makes the file so far
 * readable, for instance after a crash. May run on a second thread beside MX_InputFrame.
 *
 * Where one media box holds all samples, the size in its header is only written by MX_CreateTailer: whoever completes
 * such a file sets it, too, from the start of that box up to the stated position. With MX_FORMAT_MP4_NOSEEK there is
 * nothing to set.
 *
 * @param block Receives bytes, length and position. The bytes are the library's, good until the next MX_GetBackup or
 *              MX_DestroyHandle on this handle.
 * @return The number of bytes; 0 if the format has no backup, `block` is null or memory ran out; MX_NULL_HANDLE (1) for
 *         a null handle.
 */
MX_API uint32_t MX_GetBackup(MXHandle handle, MXOutputBlock* block) MX_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif /* MUXORA_API_H */
