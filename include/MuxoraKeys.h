/*
 * Muxora: the keys of the component classes by name, so that the compiler finds a slip of the pen. The texts are what
 * counts: "width" and FrameKey::kWidth are the same.
 *
 *     CFilePackage package(FormatKey::kMp4);
 *     AttributeMap picture = {{FrameKey::kFrameType, FRAME_KIND_VIDEO}, {FrameKey::kWidth, 1920}, ...};
 *
 * The header is valid C++17.
 */
#pragma once

namespace Orvane::Muxora {

/** What an AttributeMap says of a frame; Muxora.h tells what each means. */
namespace FrameKey {
inline constexpr char kFrameType[] = "frametype";           /**< FrameKind. */
inline constexpr char kFrameSubType[] = "framesubtype";     /**< FrameSubKind. */
inline constexpr char kEncodeType[] = "encodetype";         /**< CodecNumber. */
inline constexpr char kTimestamp[] = "timestamp";           /**< Milliseconds. */
inline constexpr char kYear[] = "year";                     /**< Local date of the frame; taken if not 0. */
inline constexpr char kMonth[] = "month";                   /**< 1 to 12. */
inline constexpr char kDay[] = "day";                       /**< 1 to 31. */
inline constexpr char kHour[] = "hour";                     /**< 0 to 23. */
inline constexpr char kMinute[] = "minute";                 /**< 0 to 59. */
inline constexpr char kSecond[] = "second";                 /**< 0 to 59. */
inline constexpr char kWidth[] = "width";                   /**< Picture width in pixels. */
inline constexpr char kHeight[] = "height";                 /**< Picture height in pixels. */
inline constexpr char kRate[] = "rate";                     /**< Pictures per second. */
inline constexpr char kDeinterlace[] = "deinterlace";       /**< 0 or 1. */
inline constexpr char kSamplesPerSec[] = "samplespersec";   /**< Sample rate in Hz. */
inline constexpr char kChannels[] = "channels";             /**< Channel count. */
inline constexpr char kBitsPerSample[] = "bitspersample";   /**< Sample width in bits. */
inline constexpr char kBitRate[] = "bitrate";               /**< Bits per second. */
inline constexpr char kBlockColumns[] = "n_slice";          /**< Columns of a split picture. */
inline constexpr char kBlockRows[] = "m_slice";             /**< Rows of a split picture. */
inline constexpr char kBlockLeft[] = "blockpos_left_";      /**< The block's number follows, from 1. */
inline constexpr char kBlockTop[] = "blockpos_top_";        /**< The same. */
inline constexpr char kBlockRight[] = "blockpos_right_";    /**< The same. */
inline constexpr char kBlockBottom[] = "blockpos_bottom_";  /**< The same. */
inline constexpr char kBlockOffset[] = "blockdata_offset_"; /**< The same. */
inline constexpr char kRotationAngle[] = "rotationangle";   /**< Rotation of the picture. */
inline constexpr char kTotalChannels[] = "matotalchannels"; /**< Channels of a multi-channel stream. */
inline constexpr char kCurrentChannel[] = "macurchannel";   /**< Channel of this frame. */
inline constexpr char kCompanyType[] = "tpcompanytype";     /**< Code of the company that the stream comes from. */
inline constexpr char kStreamHeaderLength[] = "tpstreamheaderlen"; /**< Bytes of that company's stream header. */
}  // namespace FrameKey

/** IMuxora::setParam and getParam. */
namespace ParamKey {
inline constexpr char kMaxPacketLength[] = "max_rtp_packet_length"; /**< Largest packet in bytes. */
inline constexpr char kSequenceNumber[] = "rtp_sequence_number";    /**< Video sequence number used last. */
inline constexpr char kTimestamp[] = "rtp_timestamp";               /**< RTP time of the first video frame. */
inline constexpr char kSsrc[] = "rtp_ssrc";                         /**< Video SSRC. */
inline constexpr char kAudioSample[] = "rtp_audio_sample";          /**< Audio clock rate in Hz. */
inline constexpr char kPayloadType[] = "rtp_payload_type";          /**< Video payload type. */
inline constexpr char kOutputAll[] =
    "rtp_packet_output_all_flag"; /**< 1: one block holds all the packets of a frame. */
inline constexpr char kAudioPayloadType[] = "rtp_audio_payload_type"; /**< Audio payload type. */
}  // namespace ParamKey

/** IMuxora::setExtInfo. To read the header extension back, CMuxora::extensionDataKey() is needed. */
namespace DataKey {
inline constexpr char kCustomData[] = "rtp_custom_data";            /**< Ahead of each video packet. */
inline constexpr char kAudioCustomData[] = "rtp_audio_custom_data"; /**< Ahead of each audio packet. */
inline constexpr char kExtensionData[] = "rtp_extension_data";      /**< Header extension of every packet. */
}  // namespace DataKey

/** What an AttributeMap says of a block: to a write function, and after IFilePackage::getbackup. */
namespace BlockKey {
inline constexpr char kFileOffset[] = "fileoffset"; /**< Position of the block. */
inline constexpr char kOffsetType[] =
    "offsettype"; /**< 0: the position is absolute; 1: the block follows the one before. */
inline constexpr char kSeekPosition[] = "seekpos"; /**< Low 32 bits of the position of a snapshot. */
inline constexpr char kSeekType[] = "seektype";    /**< 0. */
}  // namespace BlockKey

/** Formats; CFilePackage::supports and CMuxora::supports tell who takes which. In upper case they mean the same. */
namespace FormatKey {
inline constexpr char kMp4[] = "mp4";             /**< MP4. */
inline constexpr char kMov[] = "mov";             /**< QuickTime movie. */
inline constexpr char k3gp[] = "3gp";             /**< 3GP. */
inline constexpr char kMp4_64[] = "mp464";        /**< MP4 with 64-bit offsets. */
inline constexpr char kMov_64[] = "mov64";        /**< QuickTime movie with 64-bit offsets. */
inline constexpr char kMp4NoSeek[] = "mp4noseek"; /**< MP4 that never goes back. */
inline constexpr char kAsf[] = "asf";             /**< ASF. */
inline constexpr char kAvi[] = "avi";             /**< AVI. */
inline constexpr char kFlv[] = "flv";             /**< FLV. */
inline constexpr char kMkv[] = "mkv";             /**< Matroska. */
inline constexpr char kWav[] = "wav";             /**< RIFF/WAVE. */
inline constexpr char kOvx[] = "ovx";             /**< OVX. */
inline constexpr char kRtp[] = "rtp";             /**< RTP packets. */
inline constexpr char kTs[] = "ts";               /**< MPEG-2 transport stream. */
inline constexpr char kPs[] = "ps";               /**< MPEG-2 program stream. */
inline constexpr char kPsOv[] = "ovps";           /**< Dialect with descriptors in its map. */
inline constexpr char kPsGays[] = "gaysps";       /**< GAYS dialect. */
inline constexpr char kPsGd[] = "gdps";           /**< GD dialect. */
inline constexpr char kFmp4[] =
    "fmp4"; /**< Fragmented MP4; this one and those behind it keep exact times (MuxoraExt.h). */
inline constexpr char kHmp4[] = "hmp4"; /**< Fragments while it grows, a plain MP4 at the end. */
inline constexpr char kXmkv[] = "xmkv"; /**< Matroska. */
inline constexpr char kXflv[] = "xflv"; /**< FLV. */
inline constexpr char kXts[] = "xts";   /**< MPEG-2 transport stream. */
}  // namespace FormatKey

}  // namespace Orvane::Muxora
