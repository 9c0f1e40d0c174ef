/** @file
 * Muxora: the component classes.
 *
 * CMuxora makes a stream, packet by packet; CFilePackage writes a whole container to a path or through a function. Both
 * take raw frames, each with a map of attributes:
 *
 *     Key                          Value
 *     "frametype"                  86 ('V') video, 65 ('A') audio, 88 ('X') private data
 *     "framesubtype"               1 I, 2 P, 3 B, 9 another key frame, 25 and 27 layered key frames, 26 layered P
 *     "encodetype"                 1 MPEG-4 part 2, 2 H.264, 3 motion JPEG, 5 H.265, 6 MPEG-2 video; 21 8-bit PCM,
 *                                  28 A-law, 30 16-bit PCM, 31 mu-law, 33 AAC, 38 MPEG audio; more in CodecNumber
 *     "timestamp"                  presentation time in milliseconds
 *     "timescale" "dts" "pts"      formats with exact times: ticks a second, decoding and presentation time in ticks
 *     "duration"                   (one of the two stands for both), duration in ticks or 0; see MuxoraExt.h
 *     "year" "month" "day"         local date and time of the frame; taken if "year" is not 0
 *     "hour" "minute" "second"
 *     "width" "height" "rate"      video: picture size in pixels, frames per second
 *     "deinterlace"                video: 0 or 1
 *     "samplespersec" "channels"   audio: sample rate in Hz, channel count
 *     "bitspersample" "bitrate"    audio: sample width in bits, bits per second
 *     "n_slice" "m_slice"          columns and rows of a split picture
 *     "blockpos_left_1" ...        its blocks, counted from 1: also "blockpos_top_", "blockpos_right_",
 *                                  "blockpos_bottom_" in pixels and "blockdata_offset_" in bytes; 0 where absent
 *     "rotationangle"              rotation of the picture
 *     "matotalchannels"            channels of a multi-channel stream
 *     "macurchannel"               channel of this frame
 *     "tpcompanytype"              code of the company that the stream comes from
 *     "tpstreamheaderlen"          length of that company's stream header in bytes
 *
 * A value is cut to the width of its field. The first three keys are entered into the map with 0 when they are absent,
 * even where the map is declared constant: callers rely on it.
 *
 * Operations give a bool; most failures leave a code in the calling thread's last error (Basalt::getLastError):
 * MuxoraError. A success leaves it alone. No operation throws; an exception of a write function ends with its block.
 *
 * One call takes one access unit: a whole picture with the parameter sets ahead of it, or one frame of sound. NAL unit
 * by NAL unit, every call succeeds and the result is wrong; MX_CreateAccessUnits (MuxoraExt.h) cuts a stream into
 * access units.
 *
 * The header is valid C++17. An object belongs to one thread at a time, but for CFilePackage::getbackup. Caller and
 * library must have the same C++ standard library, see basalt/abi.h. The keys stand by name in MuxoraKeys.h.
 */
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "MuxoraKeys.h"
#include "basalt/export.h"
#include "basalt/factory.h"
#include "basalt/last_error.h"
#include "basalt/lfs_file.h"
#include "basalt/packet.h"
#include "basalt/types.h"
#include "basalt/unknown.h"

struct MXOutputBlock;

namespace Orvane::Muxora {

class CFrameAttributes;
class CPackage;

/** What the components leave in Basalt::getLastError(). */
enum MuxoraError : uint32_t {
    MUXORA_NO_PACKAGER = 1,                               /**< The object was made with an unknown format key. */
    MUXORA_REFUSED = 4,                                   /**< The format did not take the call. */
    MUXORA_CANNOT_OPEN = 5,                               /**< The path is null or can't be opened. */
    MUXORA_NO_PACKET = 10,                                /**< There is no packet to fetch. */
    MUXORA_NOT_IMPLEMENTED = Basalt::kErrorNotImplemented /**< The interface class has no such operation. */
};

/** "frametype". */
enum FrameKind {
    FRAME_KIND_AUDIO = 65,  /**< 'A'. */
    FRAME_KIND_VIDEO = 86,  /**< 'V'. */
    FRAME_KIND_PRIVATE = 88 /**< 'X'. */
};

/** "framesubtype". */
enum FrameSubKind {
    FRAME_SUB_I = 1,            /**< Intra picture, key frame. */
    FRAME_SUB_P = 2,            /**< Predicted picture. */
    FRAME_SUB_B = 3,            /**< Bi-predicted picture. */
    FRAME_SUB_KEY = 9,          /**< Key frame of another kind. */
    FRAME_SUB_LAYERED_KEY = 25, /**< Key frame, first layered kind. */
    FRAME_SUB_LAYERED_P = 26,   /**< Predicted picture of the layered kind. */
    FRAME_SUB_LAYERED_KEY2 = 27 /**< Key frame, second layered kind. */
};

/** "encodetype", and the codecs that getPacketCapacity tells. Where two numbers mean the same, the first is named. */
enum CodecNumber {
    CODEC_MPEG4 = 1,
    CODEC_H264 = 2,
    CODEC_MJPEG = 3,
    CODEC_STREAM_TYPE_80 = 4, /**< The video kind with stream type 0x80; also 25. */
    CODEC_H265 = 5,           /**< Also 26. */
    CODEC_MPEG2 = 6,          /**< MPEG-2 video; also 23. */
    CODEC_OVX_13 = 7,         /**< The video kind with OVX codec byte 13. */
    CODEC_STREAM_TYPE_B0 = 13,
    CODEC_PCM8 = 21,
    CODEC_STREAM_TYPE_99 = 22,
    CODEC_MULAW_ALT = 24,
    CODEC_WAVE_TAG_2 = 27,
    CODEC_ALAW = 28,
    CODEC_WAVE_TAG_4201 = 29,
    CODEC_PCM16 = 30,
    CODEC_MULAW = 31,
    CODEC_AAC = 33, /**< In ADTS framing. */
    CODEC_MPEG_AUDIO = 38,
    CODEC_STREAM_TYPE_92 = 41
};

/** Which table getPacketCapacity gives. */
enum CapacityType : int { CAPACITY_VIDEO = 0, CAPACITY_AUDIO = 1 };

/** What describes a frame to the components, and a block to a write function. */
using AttributeMap = std::map<Basalt::flex_string, long long>;

/** A stretch of bytes that belongs to somebody else. */
class BASALT_API IMuxoraData {
  public:
    virtual ~IMuxoraData();
    virtual const char* getBuffer() const = 0; /**< The first byte, or null. */
    virtual unsigned getLen() const = 0;       /**< The number of bytes. */
};

/** A pointer and a length. The bytes are neither copied nor freed; see the operation that gave the object for how long
 *  they last. */
class BASALT_API CMuxoraDataImpl : public IMuxoraData {
  public:
    CMuxoraDataImpl();                                        /**< Null and 0. */
    CMuxoraDataImpl(const CMuxoraDataImpl& other);            /**< The same stretch. */
    CMuxoraDataImpl& operator=(const CMuxoraDataImpl& other); /**< The same stretch. */
    ~CMuxoraDataImpl() override;
    const char* getBuffer() const override;
    unsigned getLen() const override;
    void setBuffer(void* data, unsigned length); /**< Sets both. */
    void setPointer(void* data);                 /**< Sets the first byte. */
    void setLen(unsigned length);                /**< Sets the number of bytes. */

  private:
    void* buffer_ = nullptr;
    uint32_t length_ = 0;
};

/**
 * The interface of the stream component. Here every operation fails with MUXORA_NOT_IMPLEMENTED; CMuxora has them.
 */
class BASALT_API IMuxora : public Basalt::IUnknown {
  public:
    /** Makes stream components; IFactoryUnknown::findFactory("Muxora") gives one. */
    class BASALT_API IFactory : public Basalt::IFactoryUnknown {
      public:
        ~IFactory() override;
        /** A new component for a format key, or null when memory ran out. It goes by destroy() or release(). */
        virtual IMuxora* create(const Basalt::flex_string& key);
    };

    ~IMuxora() override;

    /**
     * Packs one frame.
     *
     * @param data       The frame, read in place; see MXFrameInfo for the formats that change it.
     * @param length     Its length in bytes.
     * @param attributes What the frame is, see above.
     * @return False without a packager; false with MUXORA_REFUSED if the format does not take the frame or memory ran
     *         out. The next frame may be given.
     */
    virtual bool inputFrame(const void* data, unsigned length, const AttributeMap& attributes);

    /**
     * Gives the last block that the frame before made, once. A format that makes several blocks of a frame leaves only
     * the last one.
     *
     * @param out Takes a new object; its bytes are the component's and last until the next inputFrame. After
     *            inputFrameEx on OVX, RTP and TS they are those of the caller's packet.
     * @return False with MUXORA_NO_PACKET if there is none, or it was fetched before; false when memory ran out.
     */
    virtual bool getPacket(Basalt::TSharedPtr<IMuxoraData>& out);

    /**
     * Packs one frame into the caller's packet:
     *
     * OVX: up to capacity(); size() becomes the length of the unit, 0 if there is none.
     * RTP: the same with all packets of the frame, one behind the other, but H.265 and JPEG leave size() at 0.
     * TS:  up to size(), or up to capacity() if that is 0; size() stays.
     * PS:  as inputFrame; the packet is not used.
     *
     * getPacket gives the last block in all of these. The other formats give true and write nothing.
     *
     * @return As inputFrame; also false if the packet has no buffer. A packet that is too small is refused.
     */
    virtual bool inputFrameEx(const void* data, unsigned length, const AttributeMap& attributes,
                              Basalt::CPacket& packet);

    /**
     * Sets a parameter of an RTP stream. A packet of getPacket, and each one of inputFrameEx, is not always a datagram:
     *
     *     H.264, MPEG-4, sound of each codec    length, packet    with custom data: custom data, length, packet
     *     H.265, motion JPEG                    packet            with custom data: custom data, length, packet
     *
     * `length` is two bytes, big-endian, and counts the packet. "rtp_custom_data" of two bytes, '$' and the channel,
     * makes it an interleaved frame of RTSP (RFC 2326 10.12). docs/RTP.md has the code.
     *
     * Keys: "max_rtp_packet_length", "rtp_sequence_number" (16 bits), "rtp_timestamp",
     * "rtp_ssrc", "rtp_audio_sample" (Hz), "rtp_payload_type", "rtp_packet_output_all_flag" (1: one block holds all the
     * packets of a frame), "rtp_audio_payload_type". The value is cut to the width of the parameter. Other keys, and
     * other formats, change nothing and give true.
     *
     * @return False without a packager.
     */
    virtual bool setParam(const char* key, long long value);

    /** Reads a parameter back, with the same rules; `value` stays for other keys and formats. */
    virtual bool getParam(const char* key, long long& value);

    /**
     * Sets data of an RTP stream; copied.
     *
     * "rtp_custom_data" stands ahead of each video packet, with `length` modulo 256; false for null data.
     * "rtp_audio_custom_data" the same for audio; false for null data and for 5 bytes and more.
     * "rtp_extension_data" is the header extension of every packet. It is stored, and the result is false: callers rely
     * on that and must not look at it.
     *
     * @return As told; true for other keys and formats, false without a packager.
     */
    virtual bool setExtInfo(const char* key, const void* data, unsigned length);

    /**
     * Reads the header extension of an RTP stream back. The key is compared by its address: only
     * CMuxora::extensionDataKey() is it, and any other pointer, whatever it spells, gives true and leaves `out` alone.
     *
     * @param key See above.
     * @param out Takes a new object; its bytes are the component's and last until the extension is set again.
     * @return False without a packager.
     */
    virtual bool getExtInfo(const char* key, Basalt::TSharedPtr<IMuxoraData>& out);

    /**
     * Tells which codecs the format advertises, in CodecNumber.
     *
     * @param type  Which table.
     * @param table Takes a pointer to MXCapacityEntry records (MuxoraAPI.h), constant data of the library.
     * @param count Takes their number.
     * @return False without a packager or for a null argument; false with MUXORA_REFUSED for an unknown type.
     */
    virtual bool getPacketCapacity(CapacityType type, const void** table, int* count) const;

    // Places for operations to come.
    /** @cond */
    virtual bool rev_func24();
    virtual bool rev_func23();
    virtual bool rev_func22();
    virtual bool rev_func21();
    virtual bool rev_func20();
    virtual bool rev_func19();
    virtual bool rev_func18();
    virtual bool rev_func17();
    virtual bool rev_func16();
    virtual bool rev_func15();
    virtual bool rev_func14();
    virtual bool rev_func13();
    virtual bool rev_func12();
    virtual bool rev_func11();
    virtual bool rev_func10();
    virtual bool rev_func9();
    virtual bool rev_func8();
    virtual bool rev_func7();
    virtual bool rev_func6();
    virtual bool rev_func5();
    virtual bool rev_func4();
    virtual bool rev_func3();
    virtual bool rev_func2();
    virtual bool rev_func1();
    /** @endcond */
};

/**
 * The stream component: one stream, packet by packet. It suits the formats that only go forward, as it writes neither
 * head nor tail: "asf", "flv", "ovx", "rtp", "ts", "ps", "ovps", "gaysps", "gdps", all in lower or all in upper case.
 */
class BASALT_API CMuxora : public IMuxora {
  public:
    /** Makes CMuxora; stands in the registry as "Muxora" while it lives. */
    class BASALT_API CFactory : public IFactory {
      public:
        CFactory();
        ~CFactory() override;
        /** "Local". */
        Basalt::flex_string getName() override;
        IMuxora* create(const Basalt::flex_string& key) override;
    };

    /** Makes an OVX stream. */
    CMuxora();
    /** With an unknown key the object exists, and its operations fail. Throws std::bad_alloc when memory runs out. */
    explicit CMuxora(const Basalt::flex_string& key);
    /** Both objects then share one packager and its state. Not to be used; it is there for the interface's sake. */
    CMuxora(const CMuxora& other);
    CMuxora& operator=(const CMuxora& other); /**< As the copy constructor. */
    /** Nothing is flushed: there is no tail. */
    ~CMuxora() override;

    /** Is there a stream format of this key? */
    static bool supports(const Basalt::flex_string& key) noexcept;

    /** The pointer that getExtInfo knows as "rtp_extension_data". */
    static const char* extensionDataKey();

    void destroy() override;
    Basalt::CVersion getVersion() override;
    bool inputFrame(const void* data, unsigned length, const AttributeMap& attributes) override;
    bool getPacket(Basalt::TSharedPtr<IMuxoraData>& out) override;
    bool inputFrameEx(const void* data, unsigned length, const AttributeMap& attributes,
                      Basalt::CPacket& packet) override;
    bool setParam(const char* key, long long value) override;
    bool getParam(const char* key, long long& value) override;
    bool setExtInfo(const char* key, const void* data, unsigned length) override;
    bool getExtInfo(const char* key, Basalt::TSharedPtr<IMuxoraData>& out) override;
    bool getPacketCapacity(CapacityType type, const void** table, int* count) const override;

    /** Makes the bytes the packet that getPacket gives next, in the place of any other. The packager's output comes in
     *  here. @return True. */
    bool setPacket(unsigned char* data, int length);

  private:
    Basalt::TSharedPtr<CPackage> packager_;
    Basalt::TSharedPtr<CFrameAttributes> attributes_;
    CMuxoraDataImpl packet_;
    uint32_t packet_ready_ = 0;
};

/**
 * The interface of the file component. Here every operation fails with MUXORA_NOT_IMPLEMENTED; CFilePackage has them.
 */
class BASALT_API IFilePackage : public Basalt::IUnknown {
  public:
    /** Makes file components; IFactoryUnknown::findFactory("FilePackage") gives one. */
    class BASALT_API IFactory : public Basalt::IFactoryUnknown {
      public:
        ~IFactory() override;
        /** A new component for a format key, or null when memory ran out. It goes by destroy() or release(). */
        virtual IFilePackage* create(const Basalt::flex_string& key);
    };

    /** Takes one block of the container. The map holds "fileoffset", the block's position, and "offsettype": 0 for an
     *  absolute position, 1 for bytes that follow the bytes before (then "fileoffset" is 0). The bytes last for the
     *  call. The result is not read. An exception counts as a block that can't be written. The function must not come
     *  back to the component: its operations are refused with MUXORA_REFUSED, and destroy() does nothing. */
    using WriteFunction = Basalt::TFunction2<bool, AttributeMap&, IMuxoraData&>;

    ~IFilePackage() override;

    /**
     * Starts the container with a function as its target, and writes its head. Once in the life of an object.
     *
     * @return False for an empty function; false with MUXORA_NO_PACKAGER.
     */
    virtual bool open(WriteFunction write_fn);

    /**
     * Starts the container with a file as its target, made or emptied, and writes its head. From then on a write
     * function is not called.
     *
     * @return False with MUXORA_NO_PACKAGER, or with MUXORA_CANNOT_OPEN.
     */
    virtual bool open(const char* path);
    bool open(const Basalt::flex_string& path) { return open(path.c_str()); } /**< The same. */

    /**
     * Packs one frame; see IMuxora::inputFrame. What can't be written is lost without a word.
     *
     * @return False with MUXORA_NO_PACKAGER or MUXORA_REFUSED; the next frame may be given.
     */
    virtual bool inputFrame(const void* data, unsigned length, const AttributeMap& attributes);

    /** Finishes the container and closes the file. @return False with MUXORA_NO_PACKAGER. */
    virtual bool close();

    /**
     * Gives a snapshot of the index of an MP4 or MOV recording: written at the stated position, it makes the file so
     * far readable. On these formats it may run on a second thread beside inputFrame.
     *
     * @param out  Takes a new object; its bytes are the component's and last until the next getbackup.
     * @param info Gets "seekpos", the position's low 32 bits, and "seektype", 0. It is changed although it is declared
     *             constant: callers rely on it.
     * @return False if there is no packager, no snapshot or no memory.
     */
    virtual bool getbackup(Basalt::TSharedPtr<IMuxoraData>& out, const AttributeMap& info);

    /** As IMuxora::getPacketCapacity. */
    virtual bool getPacketCapacity(CapacityType type, const void** table, int* count) const;

    // Places for operations to come.
    /** @cond */
    virtual bool rev_func26();
    virtual bool rev_func25();
    virtual bool rev_func24();
    virtual bool rev_func23();
    virtual bool rev_func22();
    virtual bool rev_func21();
    virtual bool rev_func20();
    virtual bool rev_func19();
    virtual bool rev_func18();
    virtual bool rev_func17();
    virtual bool rev_func16();
    virtual bool rev_func15();
    virtual bool rev_func14();
    virtual bool rev_func13();
    virtual bool rev_func12();
    virtual bool rev_func11();
    virtual bool rev_func10();
    virtual bool rev_func9();
    virtual bool rev_func8();
    virtual bool rev_func7();
    virtual bool rev_func6();
    virtual bool rev_func5();
    virtual bool rev_func4();
    virtual bool rev_func3();
    virtual bool rev_func2();
    virtual bool rev_func1();
    /** @endcond */
};

/**
 * The file component: one whole container. Keys: "mp4", "mov", "3gp", "mp464", "mov64", "mp4noseek", "asf", "mkv",
 * "avi", "ovx", "flv", "wav", all in lower or all in upper case. An object that goes without close() leaves a file
 * without tail and index.
 */
class BASALT_API CFilePackage : public IFilePackage {
  public:
    /** Makes CFilePackage; stands in the registry as "FilePackage" while it lives. */
    class BASALT_API CFactory : public IFactory {
      public:
        CFactory();
        ~CFactory() override;
        /** "Local". */
        Basalt::flex_string getName() override;
        IFilePackage* create(const Basalt::flex_string& key) override;
    };

    /** Makes an OVX file. */
    CFilePackage();
    /** With an unknown key the object exists, and its operations fail. Throws std::bad_alloc when memory runs out. */
    explicit CFilePackage(const Basalt::flex_string& key);
    CFilePackage(const CFilePackage&) = delete;
    CFilePackage& operator=(const CFilePackage&) = delete;
    ~CFilePackage() override;

    /** Is there a file format of this key? */
    static bool supports(const Basalt::flex_string& key) noexcept;

    void destroy() override;
    Basalt::CVersion getVersion() override;
    using IFilePackage::open;
    bool open(WriteFunction write_fn) override;
    bool open(const char* path) override;
    bool inputFrame(const void* data, unsigned length, const AttributeMap& attributes) override;
    bool close() override;
    bool getbackup(Basalt::TSharedPtr<IMuxoraData>& out, const AttributeMap& info) override;
    bool getPacketCapacity(CapacityType type, const void** table, int* count) const override;

  private:
    static int32_t OnBlock(const ::MXOutputBlock* block, void* user);
    void Start();

    std::unique_ptr<CPackage> packager_;
    std::unique_ptr<CFrameAttributes> attributes_;
    CMuxoraDataImpl backup_;
    Basalt::CLfsFile file_;
    WriteFunction write_fn_;
};

/** Puts the two factories into the registry, once; further calls do nothing. They leave it when the process ends. May
 * be called on any thread. */
BASALT_API void initMuxoraComponentLibrary();

}  // namespace Orvane::Muxora
