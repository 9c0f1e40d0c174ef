/*
 * Muxora: what stands beside the C interface of MuxoraAPI.h.
 *
 * Formats that keep every time exactly, and what they need: times by the tick on each frame, the shape of fragments,
 * what an output block of theirs holds. Valid C99 and C++17. The functions and records of MuxoraAPI.h stay as they are:
 * a caller that does not include this header misses nothing of them.
 */
#ifndef MUXORA_EXT_H
#define MUXORA_EXT_H

#include <string.h> /* NOLINT(modernize-deprecated-headers): C reads it, too */

#include "MuxoraAPI.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------ formats */

/** Formats with exact times: further numbers for MX_CreateHandle. */
enum MXExactFormat {
    MX_FORMAT_FMP4 = 0x10000, /**< "fmp4": fragmented MP4 (ISO/IEC 14496-12, 23000-19), forward only. */
    MX_FORMAT_HMP4 = 0x10001, /**< "hmp4": fragments while it grows, a plain indexed MP4 after the tailer. */
    MX_FORMAT_XMKV = 0x10002, /**< "xmkv": Matroska (RFC 9559) with absolute 64-bit times. */
    MX_FORMAT_XFLV = 0x10003, /**< "xflv": FLV with composition offsets; H.265 by Enhanced RTMP. */
    MX_FORMAT_XTS = 0x10004   /**< "xts": MPEG-2 TS (ISO/IEC 13818-1) with PTS and DTS. */
};

/** Further values of the type argument of MX_SetParam and MX_GetParam; see the inline functions below. */
enum MXExtParamType {
    MX_PARAM_FRAGMENT = 1,    /**< MXFragmentParam: set, fmp4 and hmp4. */
    MX_PARAM_TIME_REPAIRS = 2 /**< MXTimeRepairs: get, every format with exact times. */
};

/* -------------------------------------------------------------------------------------------- frame times */

/** MXFrameTimes::tag. */
#define MX_FRAME_TIMES_TAG 0x5446584Du

#pragma pack(push, 4)

/**
 * The exact times of a frame, 32 bytes; stands in MXFrameInfo from byte 84 on, where a zeroed record means "not given".
 * Written by MXSetFrameTimes. Without it presentation comes from MXFrameInfo::timestamp and decoding order from
 * arrival: a timestamp of 0 stands for the end of the frame before by the rates (the first one for 0), sound counts its
 * samples on while its timestamps agree with them to the millisecond, and the decoding times of pictures are their
 * presentation times in rising order.
 *
 * All frames of a stream should carry the same scale; pictures and sound need not share one. Frames come in decoding
 * order. Times may be negative: what is presented before 0 is priming, which decodes and is not shown.
 *
 * A tick is one of the format's own scale: FLV has milliseconds, TS 1/90000 s, MP4 the scale of the first frame
 * (brought below 2^25 where it is finer), Matroska as its header says. Times are rounded to it and repaired after that.
 *
 * The formats with exact times repair what no container can hold, all by the same rule, each stream by itself:
 *
 *  1. A decoding time that repeats or steps back by less than a second becomes one tick more than the one before.
 *  2. A step back by a second or more, or one forward by more than 60 seconds past the end of the frame before, is a
 *     jump: the stream goes on where the frame before ended, and an offset keeps all later frames in step. The other
 *     stream takes the same offset when its own times jump, so that sound and picture stay together.
 *  3. A presentation time ahead of the decoding time, or more than 60 seconds behind it, becomes the decoding time.
 *
 * MXTimeRepairs tells how often each of the three was needed.
 */
typedef struct MXFrameTimes {
    uint32_t tag;        /**< MX_FRAME_TIMES_TAG; anything else: no times are given. */
    uint32_t time_scale; /**< Ticks a second; 0: no times are given. */
    int64_t dts;         /**< Decoding time in ticks. */
    int64_t pts;         /**< Presentation time in ticks. */
    int64_t duration;    /**< Duration in ticks; 0: up to the next frame. */
} MXFrameTimes;

/** What was repaired in the times of a stream so far: counts of frames, 28 bytes. */
typedef struct MXTimeRepairs {
    uint32_t size;                 /**< 28. */
    uint32_t video_not_rising;     /**< Rule 1. */
    uint32_t video_jumps;          /**< Rule 2. */
    uint32_t video_early_pictures; /**< Rule 3. */
    uint32_t audio_not_rising;     /**< Rule 1. */
    uint32_t audio_jumps;          /**< Rule 2. */
    uint32_t audio_early_frames;   /**< Rule 3. */
} MXTimeRepairs;

/* ---------------------------------------------------------------------------------------------- fragments */

/** MXFragmentParam::mode. */
enum MXFragmentMode {
    MX_FRAGMENT_GOP = 0,      /**< A fragment ends where the next key frame begins, `duration_ms` at most if not 0. */
    MX_FRAGMENT_DURATION = 1, /**< At the first frame past `duration_ms`, key frame or not. */
    MX_FRAGMENT_CHUNK = 2     /**< Every frame: one chunk a call, for low latency. */
};

/** MXFragmentParam::tracks. */
enum MXFragmentTracks {
    MX_TRACKS_BOTH = 0,  /**< Whatever comes: see MXFragmentParam::wait_ms. */
    MX_TRACKS_VIDEO = 1, /**< Pictures alone; sound is refused. */
    MX_TRACKS_AUDIO = 2  /**< Sound alone; pictures are refused. */
};

/** MXFragmentParam::boxes, added up. */
enum MXFragmentBoxes {
    MX_BOX_STYP = 1, /**< `styp` ahead of each segment (ISO/IEC 14496-12 8.16.2). */
    MX_BOX_SIDX = 2, /**< `sidx` ahead of each segment (8.16.3). */
    MX_BOX_PRFT = 4  /**< `prft` with the wall clock ahead of each fragment (8.16.5). */
};

/** The shape of fragments, 24 bytes: set between MX_CreateHandle and MX_CreateHeader. */
typedef struct MXFragmentParam {
    uint32_t size;        /**< 24. */
    uint32_t mode;        /**< MXFragmentMode. */
    uint32_t duration_ms; /**< See MXFragmentMode. */
    uint32_t tracks;      /**< MXFragmentTracks. */
    uint32_t boxes;       /**< MXFragmentBoxes; fmp4 only. */
    uint32_t wait_ms;     /**< How long to wait for the first frame of the other stream before the initialisation
                               segment is written with one track; 0 reads as 1000 ms of media. */
} MXFragmentParam;

/* ------------------------------------------------------------------------------------------------- output */

/** MXExactBlock::kind. */
enum MXBlockKind {
    MX_BLOCK_HEADER = 0, /**< What a reader needs first: initialisation segment, FLV head, EBML head, PAT and PMT. Comes
                              again when parameter sets change. */
    MX_BLOCK_MEDIA = 1,  /**< Media. */
    MX_BLOCK_INDEX = 2,  /**< An index or other tail, behind the media. */
    MX_BLOCK_PATCH = 3   /**< Bytes that replace earlier ones. */
};

/** MXExactBlock::flags, added up. */
enum MXBlockFlags {
    MX_BLOCK_KEY = 1,   /**< The first picture is a key frame (in a stream of sound alone: always set). */
    MX_BLOCK_VIDEO = 2, /**< Holds pictures. */
    MX_BLOCK_AUDIO = 4  /**< Holds sound. */
};

/**
 * The output block of the formats with exact times, 64 bytes: an MXOutputBlock that goes on. `output` may cast its
 * argument when MXOutputBlock::size is at least 64.
 */
typedef struct MXExactBlock {
    MXOutputBlock block; /**< Its size says 64. */
    uint32_t kind;       /**< MXBlockKind. */
    uint32_t flags;      /**< MXBlockFlags. */
    uint32_t time_scale; /**< Ticks a second of the times below. */
    uint32_t reserved;   /**< 0. */
    int64_t dts;         /**< Media: decoding time of the first picture, without pictures of the first sound. */
    int64_t duration;    /**< Media: how far the block reaches from there, 0 where not known. */
} MXExactBlock;

#pragma pack(pop)

/* ------------------------------------------------------------------------------------- inline conveniences */

/**
 * Gives a frame its exact times. Call it after the record was zeroed and filled.
 *
 * @param time_scale Ticks a second, above 0.
 * @param duration   0: up to the next frame.
 */
static inline void MXSetFrameTimes(MXFrameInfo* frame, uint32_t time_scale, int64_t dts, int64_t pts,
                                   int64_t duration) {
    MXFrameTimes times;
    times.tag = MX_FRAME_TIMES_TAG;
    times.time_scale = time_scale;
    times.dts = dts;
    times.pts = pts;
    times.duration = duration;
    memcpy(frame->reserved1, &times, sizeof times);
}

/** MX_SetParam with MX_PARAM_FRAGMENT. @return As MX_SetParam; MX_OK and no effect on other formats. */
static inline uint32_t MXSetFragmentParam(MXHandle handle, const MXFragmentParam* param) {
    return MX_SetParam(handle, MX_PARAM_FRAGMENT, (const MXRtpParam*)(const void*)param, sizeof *param);
}

/** MX_GetParam with MX_PARAM_TIME_REPAIRS. @return As MX_GetParam; `repairs->size` is 0 on other formats. */
static inline uint32_t MXGetTimeRepairs(MXHandle handle, MXTimeRepairs* repairs) {
    uint32_t size = sizeof *repairs;
    uint32_t result = MX_GetParam(handle, MX_PARAM_TIME_REPAIRS, (MXRtpParam*)(void*)repairs, &size);
    if (result == MX_OK) repairs->size = size;
    return result;
}

#ifdef __cplusplus
}
#endif

#endif /* MUXORA_EXT_H */
