/** @file
 * Muxora: what stands beside the C interface of MuxoraAPI.h.
 *
 * Formats that keep every time exactly, and what they need: times by the tick on each frame, the shape of fragments,
 * what an output block of theirs holds, and the repair of a killed recording. Access units out of the bytes of an
 * elementary stream. Messages. Valid C99 and C++17. The functions and records of MuxoraAPI.h stay as they are: a caller
 * that does not include this header misses nothing of them.
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

/**
 * MXFragmentParam::mode. Whatever it is, a fragment ends ahead of a frame that would take it beyond 64 MiB (a larger
 * frame stands alone), or that begins more than a minute behind its first one.
 */
enum MXFragmentMode {
    MX_FRAGMENT_GOP = 0, /**< A fragment ends where the next key frame begins, `duration_ms` at most if not 0; one of
                              hmp4 also ahead of a picture (with sound alone, of a frame) that would take it beyond
                              512 KiB. */
    MX_FRAGMENT_DURATION = 1, /**< At the first frame past `duration_ms`, key frame or not. */
    MX_FRAGMENT_CHUNK = 2     /**< Every frame: one chunk a call, for low latency. Without a duration it goes out with
                                   the next frame of its stream, which tells how long it lasts. */
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
    MX_BLOCK_PATCH = 3   /**< Bytes that replace earlier ones, or that only a file needs. */
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

/* ------------------------------------------------------------------------------------------------- repair */

/** Reads `length` bytes at `position`, all inside the file. @return 0, or anything else where that failed. */
typedef uint32_t (*MXReadFunction)(void* user, uint64_t position, void* data, uint32_t length);

/** Writes bytes, behind the end of the file as well. @return 0, or anything else where that failed. */
typedef uint32_t (*MXWriteFunction)(void* user, uint64_t position, const void* data, uint32_t length);

/** Makes the file end here, and what was written durable. @return 0, or anything else where that failed. */
typedef uint32_t (*MXCutFunction)(void* user, uint64_t length);

#pragma pack(push, 4)

/** A hybrid MP4 (MX_FORMAT_HMP4) that MX_RepairHybrid works on, through the caller's functions. */
typedef struct MXHybridFile {
    uint32_t size;         /**< sizeof. */
    uint32_t unused;       /**< 0. */
    void* user;            /**< Handed to each function. */
    uint64_t length;       /**< Of the file, in bytes. */
    MXReadFunction read;   /**< Reads a stretch of the file. */
    MXWriteFunction write; /**< Writes over a stretch of it. */
    MXCutFunction cut;     /**< Sets its end. */
} MXHybridFile;

/** MXHybridRepair::state. */
enum MXHybridState {
    MX_HYBRID_OTHER = 0,    /**< Not a hybrid MP4 that was still growing; nothing was written. */
    MX_HYBRID_REPAIRED = 1, /**< Completed. */
    MX_HYBRID_REFUSED = 2,  /**< One, but it does not hold together, see `message`; nothing was written. */
    MX_HYBRID_FAILED = 3    /**< A function of the caller's failed, see `message`. May be tried again. */
};

/** What became of it. */
typedef struct MXHybridRepair {
    uint32_t size;       /**< In: sizeof. */
    uint32_t state;      /**< MXHybridState. */
    uint64_t fragments;  /**< Whole ones, all of which stay. */
    uint64_t media_end;  /**< Where the last of them ends, and the index begins. */
    uint64_t length;     /**< Of the file, in bytes. */
    uint64_t position;   /**< Where the trouble is, if there is any. */
    const char* message; /**< What it is, in English, without a full stop; static. Empty if there is none. */
} MXHybridRepair;

#pragma pack(pop)

/**
 * Completes a hybrid MP4 whose process was killed, in place: does what MX_CreateTailer would have done. The index of
 * all whole fragments goes behind the last of them, over what is there of a fragment or of an index that was cut off;
 * one `mdat` then takes in everything ahead of it, which is the last write. Cut off before that, it can be run again.
 *
 * Whatever the bytes are, nothing is written unless all of the fragments hold together. Needs memory for the largest
 * `moof`, 12 bytes a sample, and 64 KiB. May run on any thread; each call stands by itself.
 *
 * @return MX_OK: see MXHybridRepair::state for MX_HYBRID_REPAIRED or MX_HYBRID_OTHER. MX_FAILED: a bad argument (the
 *         record is untouched then), MX_HYBRID_REFUSED or MX_HYBRID_FAILED. MX_NULL_RECORD. MX_NO_RESOURCES: may be
 * tried again.
 */
MX_API uint32_t MX_RepairHybrid(const MXHybridFile* file, MXHybridRepair* repair) MX_NOEXCEPT;

/* ------------------------------------------------------------------------------------------- access units */

/**
 * Cuts an elementary stream into what MX_InputFrame takes, which is one access unit a call: a picture with the
 * parameter sets and everything else that belongs to it, or one frame of sound.
 *
 *     MXAccessUnits units = MX_CreateAccessUnits(MX_FRAME_VIDEO, MX_VIDEO_H264, 0);
 *     MXAccessUnit unit = {sizeof unit};
 *     while ((n = fread(piece, 1, sizeof piece, stream)) != 0) {
 *         MX_PutBytes(units, piece, n);
 *         while (MX_GetAccessUnit(units, &unit) == MX_OK) pack(&unit);
 *     }
 *     MX_EndAccessUnits(units);
 *     while (MX_GetAccessUnit(units, &unit) == MX_OK) pack(&unit);
 *     MX_DestroyAccessUnits(units);
 *
 * where `pack` is MXFrameFromAccessUnit, a timestamp, and MX_InputFrame. The object belongs to one thread at a time. It
 * is safe on any bytes, and allocates nothing once it has seen the largest unit of its stream.
 */
typedef struct MXAccessUnitsObject* MXAccessUnits;

/** The flags of MX_CreateAccessUnits, added up. */
enum MXAccessUnitsFlags {
    MX_UNITS_LONG_START_CODES = 1 /**< Every NAL unit comes behind 00 00 00 01, the only start code that Matroska and
                                       H.265 over RTP know. Units with a shorter one are copied. */
};

/** MXAccessUnit::field. */
enum MXUnitField {
    MX_UNIT_FRAME = 0,       /**< A frame, interlaced or not. */
    MX_UNIT_TOP_FIELD = 1,   /**< One field: a field is a picture, and an access unit, of its own. */
    MX_UNIT_BOTTOM_FIELD = 2 /**< The other one. */
};

/** Further results, of the functions that say so. */
enum MXExtResult { MX_NO_UNIT = 16 /**< There is no whole unit any more; more bytes may bring one. */ };

#pragma pack(push, 4)

/** An access unit, or a frame of sound, 72 bytes. Zero where the stream does not say. */
typedef struct MXAccessUnit {
    uint32_t size;        /**< In: 72 (sizeof). */
    uint32_t length;      /**< Length of the unit in bytes. */
    const void* data;     /**< The unit: the caller's bytes where it lies in one piece, else the library's; good until
                               the next call. A byte behind it may be read where a NAL unit ends there. */
    uint32_t frame_type;  /**< As given to MX_CreateAccessUnits. */
    uint32_t encode_type; /**< As given to MX_CreateAccessUnits. */
    uint32_t frame_sub_type; /**< For MXFrameInfo: MX_SUB_I for a key frame, MX_SUB_B, or MX_SUB_P for all others. */
    uint32_t key_frame;    /**< 1: decoding can begin here: IDR or a recovery point of no frames (H.264), IRAP (H.265),
                                any sound. */
    uint32_t picture_kind; /**< MX_SUB_I, MX_SUB_P or MX_SUB_B after its slices; MX_SUB_OTHER: not known. */
    uint32_t field;        /**< MXUnitField. */
    uint32_t width;        /**< Size of the picture that is shown, in pixels. */
    uint32_t height;       /**< Of the whole frame, for a field as well (H.264). */
    uint32_t
        rate_numerator; /**< Frames a second (fields, in an H.265 stream of fields), in lowest terms, of the SPS. */
    uint32_t rate_denominator; /**< 0: not stated. */
    uint32_t samples_per_sec;  /**< Sound: sample rate in Hz. */
    uint32_t channels;         /**< Sound: channels; 0 with AAC that states them elsewhere. */
    uint32_t samples;          /**< Sound: samples of each channel in the frame. */
    uint32_t reserved;         /**< 0. */
} MXAccessUnit;

#pragma pack(pop)

/**
 * Makes a cutter.
 *
 * @param frame_type  MX_FRAME_VIDEO or MX_FRAME_AUDIO.
 * @param encode_type MX_VIDEO_H264 (and its other numbers) or MX_VIDEO_H265, in Annex-B form; MX_AUDIO_AAC in ADTS
 *                    framing or MX_AUDIO_MPEG.
 * @param flags       MXAccessUnitsFlags.
 * @return The object, which MX_DestroyAccessUnits releases, or null: another codec, or memory ran out.
 */
MX_API MXAccessUnits MX_CreateAccessUnits(uint32_t frame_type, uint32_t encode_type, uint32_t flags) MX_NOEXCEPT;

/**
 * Hands in bytes, cut anywhere. They are looked at by MX_GetAccessUnit and have to stay until it says MX_NO_UNIT; only
 * then may more come.
 *
 * @return MX_OK, MX_NULL_HANDLE, or MX_FAILED (null data, or bytes of before are still to be looked at).
 */
MX_API uint32_t MX_PutBytes(MXAccessUnits units, const void* data, uint32_t length) MX_NOEXCEPT;

/**
 * Hands in one NAL unit, with its start code or without, as a depacketiser has it. Copied. It may be followed by
 * another without a look at MX_GetAccessUnit between them.
 *
 * @return MX_OK, MX_NULL_HANDLE, MX_FAILED (null data, no length, not a video stream, or bytes of before are still to
 * be looked at), or MX_NO_RESOURCES, and the unit begun is gone.
 */
MX_API uint32_t MX_PutNal(MXAccessUnits units, const void* nal, uint32_t length) MX_NOEXCEPT;

/**
 * Says that what came so far ends a unit: at the end of the stream, or where a transport marks the end of a picture.
 * The stream may go on behind it.
 *
 * @return MX_OK, MX_NULL_HANDLE, or MX_FAILED (bytes are still to be looked at).
 */
MX_API uint32_t MX_EndAccessUnits(MXAccessUnits units) MX_NOEXCEPT;

/**
 * Gives the next whole unit. A unit is whole when the next one begins, or MX_EndAccessUnits was called; a frame of
 * sound when its bytes are there. What belongs to no unit, as bytes ahead of the first start code, a half frame of
 * sound or 64 MiB without an end, is left out.
 *
 * @param unit Its `size` is set by the caller.
 * @return MX_OK, MX_NO_UNIT, MX_NULL_HANDLE, MX_FAILED (null record or too small), or MX_NO_RESOURCES, and that unit is
 *         gone.
 */
MX_API uint32_t MX_GetAccessUnit(MXAccessUnits units, MXAccessUnit* unit) MX_NOEXCEPT;

/** Releases a cutter. @return MX_OK, or MX_NULL_HANDLE. */
MX_API uint32_t MX_DestroyAccessUnits(MXAccessUnits units) MX_NOEXCEPT;

/* ----------------------------------------------------------------------------------------------- messages */

/** Takes a message of the library: one line, its line feed included, good during the call. */
typedef void (*MXMessageFunction)(const char* text, void* user);

/**
 * Gives the library's messages, which go to standard output otherwise, to a function; null: to standard output again.
 * For the whole process. May be called on any thread at any time; once it has returned, the function set before is not
 * called any more. The function is called on the thread that packs, one call at a time; it must not wait for another
 * thread that packs, and must not throw.
 */
MX_API void MX_SetMessageFunction(MXMessageFunction function, void* user) MX_NOEXCEPT;

/* ------------------------------------------------------------------------------------- inline conveniences */

/**
 * Makes a frame record of an access unit: everything but its time. The frame stays where it is; OVX with a cipher, RTP
 * with 16-bit PCM and Matroska change it in place, so there the bytes given to MX_PutBytes must be writable.
 */
static inline void MXFrameFromAccessUnit(MXFrameInfo* frame, const MXAccessUnit* unit) {
    memset(frame, 0, sizeof *frame);
    frame->size = sizeof *frame;
    memcpy(&frame->frame_pointer, &unit->data, sizeof unit->data);
    frame->frame_size = unit->length;
    frame->frame_type = unit->frame_type;
    frame->frame_sub_type = unit->frame_sub_type;
    frame->encode_type = unit->encode_type;
    frame->width = unit->width;
    frame->height = unit->height;
    if (unit->rate_denominator != 0) {
        frame->frame_rate = (uint32_t)(((uint64_t)unit->rate_numerator + unit->rate_denominator / 2) /
                                       unit->rate_denominator); /* NOLINT: C reads it, too */
    }
    frame->samples_per_sec = unit->samples_per_sec;
    frame->channels = unit->channels;
}

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
