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
inline constexpr char kFrameType[] = "frametype";                  /**< FrameKind. */
inline constexpr char kFrameSubType[] = "framesubtype";            /**< FrameSubKind. */
inline constexpr char kEncodeType[] = "encodetype";                /**< CodecNumber. */
inline constexpr char kTimestamp[] = "timestamp";                  /**< Milliseconds. */
inline constexpr char kYear[] = "year";                            /**< "year". */
inline constexpr char kMonth[] = "month";                          /**< "month". */
inline constexpr char kDay[] = "day";                              /**< "day". */
inline constexpr char kHour[] = "hour";                            /**< "hour". */
inline constexpr char kMinute[] = "minute";                        /**< "minute". */
inline constexpr char kSecond[] = "second";                        /**< "second". */
inline constexpr char kWidth[] = "width";                          /**< "width". */
inline constexpr char kHeight[] = "height";                        /**< "height". */
inline constexpr char kRate[] = "rate";                            /**< "rate". */
inline constexpr char kDeinterlace[] = "deinterlace";              /**< "deinterlace". */
inline constexpr char kSamplesPerSec[] = "samplespersec";          /**< "samplespersec". */
inline constexpr char kChannels[] = "channels";                    /**< "channels". */
inline constexpr char kBitsPerSample[] = "bitspersample";          /**< "bitspersample". */
inline constexpr char kBitRate[] = "bitrate";                      /**< "bitrate". */
inline constexpr char kBlockColumns[] = "n_slice";                 /**< "n_slice". */
inline constexpr char kBlockRows[] = "m_slice";                    /**< "m_slice". */
inline constexpr char kBlockLeft[] = "blockpos_left_";             /**< The block's number follows, from 1. */
inline constexpr char kBlockTop[] = "blockpos_top_";               /**< The same. */
inline constexpr char kBlockRight[] = "blockpos_right_";           /**< The same. */
inline constexpr char kBlockBottom[] = "blockpos_bottom_";         /**< The same. */
inline constexpr char kBlockOffset[] = "blockdata_offset_";        /**< The same. */
inline constexpr char kRotationAngle[] = "rotationangle";          /**< "rotationangle". */
inline constexpr char kTotalChannels[] = "matotalchannels";        /**< "matotalchannels". */
inline constexpr char kCurrentChannel[] = "macurchannel";          /**< "macurchannel". */
inline constexpr char kCompanyType[] = "tpcompanytype";            /**< "tpcompanytype". */
inline constexpr char kStreamHeaderLength[] = "tpstreamheaderlen"; /**< "tpstreamheaderlen". */
}  // namespace FrameKey

/** IMuxora::setParam and getParam. */
namespace ParamKey {
inline constexpr char kMaxPacketLength[] = "max_rtp_packet_length";   /**< "max_rtp_packet_length". */
inline constexpr char kSequenceNumber[] = "rtp_sequence_number";      /**< "rtp_sequence_number". */
inline constexpr char kTimestamp[] = "rtp_timestamp";                 /**< "rtp_timestamp". */
inline constexpr char kSsrc[] = "rtp_ssrc";                           /**< "rtp_ssrc". */
inline constexpr char kAudioSample[] = "rtp_audio_sample";            /**< "rtp_audio_sample". */
inline constexpr char kPayloadType[] = "rtp_payload_type";            /**< "rtp_payload_type". */
inline constexpr char kOutputAll[] = "rtp_packet_output_all_flag";    /**< "rtp_packet_output_all_flag". */
inline constexpr char kAudioPayloadType[] = "rtp_audio_payload_type"; /**< "rtp_audio_payload_type". */
}  // namespace ParamKey

/** IMuxora::setExtInfo. To read the header extension back, CMuxora::extensionDataKey() is needed. */
namespace DataKey {
inline constexpr char kCustomData[] = "rtp_custom_data";            /**< "rtp_custom_data". */
inline constexpr char kAudioCustomData[] = "rtp_audio_custom_data"; /**< "rtp_audio_custom_data". */
inline constexpr char kExtensionData[] = "rtp_extension_data";      /**< "rtp_extension_data". */
}  // namespace DataKey

/** What an AttributeMap says of a block: to a write function, and after IFilePackage::getbackup. */
namespace BlockKey {
inline constexpr char kFileOffset[] = "fileoffset"; /**< "fileoffset". */
inline constexpr char kOffsetType[] = "offsettype"; /**< "offsettype". */
inline constexpr char kSeekPosition[] = "seekpos";  /**< "seekpos". */
inline constexpr char kSeekType[] = "seektype";     /**< "seektype". */
}  // namespace BlockKey

/** Formats; CFilePackage::supports and CMuxora::supports tell who takes which. In upper case they mean the same. */
namespace FormatKey {
inline constexpr char kMp4[] = "mp4";             /**< "mp4". */
inline constexpr char kMov[] = "mov";             /**< "mov". */
inline constexpr char k3gp[] = "3gp";             /**< "3gp". */
inline constexpr char kMp4_64[] = "mp464";        /**< "mp464". */
inline constexpr char kMov_64[] = "mov64";        /**< "mov64". */
inline constexpr char kMp4NoSeek[] = "mp4noseek"; /**< "mp4noseek". */
inline constexpr char kAsf[] = "asf";             /**< "asf". */
inline constexpr char kAvi[] = "avi";             /**< "avi". */
inline constexpr char kFlv[] = "flv";             /**< "flv". */
inline constexpr char kMkv[] = "mkv";             /**< "mkv". */
inline constexpr char kWav[] = "wav";             /**< "wav". */
inline constexpr char kOvx[] = "ovx";             /**< "ovx". */
inline constexpr char kRtp[] = "rtp";             /**< "rtp". */
inline constexpr char kTs[] = "ts";               /**< "ts". */
inline constexpr char kPs[] = "ps";               /**< "ps". */
inline constexpr char kPsOv[] = "ovps";           /**< "ovps". */
inline constexpr char kPsGays[] = "gaysps";       /**< "gaysps". */
inline constexpr char kPsGd[] = "gdps";           /**< "gdps". */
}  // namespace FormatKey

}  // namespace Orvane::Muxora
