#include "ovx_reader/records.h"

#include <gtest/gtest.h>

#include "ovx_reader/data_check.h"
#include "ovx_reader/decryptor.h"
#include "support/hex.h"

namespace Orvane::OvxReader {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

// "Name: words" of each record of a block, and "?" where it can't be read on.
std::vector<std::string> Described(const ByteVector& bytes) {
    std::vector<std::string> out;
    ByteSpan block(bytes);
    while (const auto record = TakeRecord(block))
        out.push_back(std::string(record->Name()) + ": " + record->Describe());
    if (!block.empty()) out.push_back("?");
    return out;
}

TEST(OvxRecords, EachByItsName) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(Described(Bytes("80 02 F0 87  81 00 08 19  88 26 39 F4 CB 00 00 02")),
              (Lines{"ImageSize: 1920x1080 progressive", "PlayBack: H.264, 25 fps", "DataCheck: CRC-32 CBF43926"}));
    EXPECT_EQ(Described(Bytes("82 01 00 00 EA 03 E8 03")), (Lines{"ImageSize: 1002x1000 interlaced"}));
    EXPECT_EQ(Described(Bytes("83 02 1A 09  8C 08 02 1A 09 0A 00 00")),
              (Lines{"AudioFormat: AAC, 2 channels, 48000 Hz", "AudioFormat: AAC, 2 channels, 48000 Hz, 64000 bit/s"}));
    EXPECT_EQ(Described(Bytes("83 01 0E 00")), (Lines{"AudioFormat: G.711 A-law, 1 channel, rate not listed"}));
    EXPECT_EQ(Described(Bytes("8C 08 02 1A 08 00 00 00")),
              (Lines{"AudioFormat: AAC, 2 channels, 44100 Hz, bit rate not listed"}));
    EXPECT_EQ(Described(Bytes("88 01 00 00 00 00 00 00  88 FE 00 00 00 00 00 01")),
              (Lines{"DataCheck: sum 00000001", "DataCheck: XOR FE"}));
    EXPECT_EQ(Described(Bytes("95 00 34 12 BC 9A 00 00")), (Lines{"Encrypt: AES, from byte 4660, 39612 bytes"}));
    EXPECT_EQ(Described(Bytes("99 02 01 80 07 38 04 00") + ByteVector(32) + Bytes("8B 5A 00 00")),
              (Lines{"SplitInfo: 2 by 1 blocks of 1920x1080", "RotationInfo: 90"}));
    EXPECT_EQ(Described(Bytes("92 00 02 01 04 03 00 00  96 02 05 00  94 08 09 00")),
              (Lines{"exCompanyType: 258, stream header of 772 bytes", "exMultiChannel: channel 5 of 2",
                     "exSVChead: 08 09"}));
}

TEST(OvxRecords, CodecsOfPlayBack) {
    EXPECT_EQ(VideoCodec(1).suffix, "m4v");
    EXPECT_EQ(VideoCodec(2).suffix, "h264");
    EXPECT_EQ(VideoCodec(5).suffix, "mjpeg");
    EXPECT_EQ(VideoCodec(8).suffix, "h264");
    EXPECT_EQ(VideoCodec(9).suffix, "m2v");
    EXPECT_EQ(VideoCodec(12).suffix, "h265");
    EXPECT_EQ(VideoCodec(13).suffix, "video");
    EXPECT_EQ(AudioCodec(26).suffix, "aac");
    EXPECT_EQ(AudioCodec(0).suffix, "audio");
}

TEST(OvxRecords, StopAtWhatTheyDoNotKnow) {
    EXPECT_EQ(Described(Bytes("7F 00 00 00")), (std::vector<std::string>{"?"}));
    EXPECT_EQ(Described(Bytes("81 00 08")), (std::vector<std::string>{"?"}));
    EXPECT_EQ(Described(Bytes("99 02 01 80 07 38 04 00") + ByteVector(31)), (std::vector<std::string>{"?"}));
    EXPECT_EQ(Described(Bytes("99 FF FF 80 07 38 04 00")), (std::vector<std::string>{"?"}));
    EXPECT_FALSE(Extension(Bytes("81 00 08 19 00")).Intact());
}

TEST(OvxRecords, BytesThatTheFormatFixes) {
    const char* const kGood[] = {"80 02 F0 87",
                                 "81 00 08 19",
                                 "82 02 00 00 00 08 38 04",
                                 "83 02 1A 09",
                                 "88 26 39 F4 CB 00 00 02",
                                 "8B 5A 00 00",
                                 "8C 08 02 1A 09 0A 00 00",
                                 "92 00 02 01 04 03 00 00",
                                 "94 08 09 00",
                                 "95 00 34 12 BC 9A 00 00",
                                 "96 02 05 00",
                                 "99 00 00 80 07 38 04 00"};
    for (const char* const hex : kGood) {
        const ByteVector bytes = Bytes(hex);
        EXPECT_TRUE(Extension(bytes).Intact()) << hex;
    }
    const char* const kBad[] = {"81 01 08 19",
                                "82 02 01 00 00 08 38 04",
                                "83 02 1A 0A",
                                "88 26 39 F4 CB 00 01 02",
                                "88 26 39 F4 CB 00 00 03",
                                "8B 5A 00 01",
                                "8C 09 02 1A 09 0A 00 00",
                                "8C 08 02 1A 0A 0A 00 00",
                                "8C 08 02 1A 09 16 00 00",
                                "8C 08 02 1A 09 0A 00 01",
                                "92 01 02 01 04 03 00 00",
                                "92 00 02 01 04 03 01 00",
                                "94 08 09 01",
                                "95 00 34 12 BC 9A 01 00",
                                "96 02 05 01",
                                "99 00 00 80 07 38 04 01"};
    for (const char* const hex : kBad) {
        const ByteVector bytes = Bytes(hex);
        EXPECT_FALSE(Extension(bytes).Intact()) << hex;
    }
}

TEST(OvxDataCheck, SumOfWords) {
    EXPECT_EQ(SumOfWords(Bytes("01 02 03 04")), 0x04030201u);
    EXPECT_EQ(SumOfWords(Bytes("01 02 03 04  FF FF FF FF")), 0x04030200u);
    EXPECT_EQ(SumOfWords(Bytes("01 02 03 04  10")), 0x04030211u);
    EXPECT_EQ(SumOfWords({}), 0u);
}

TEST(OvxDataCheck, XorOfBytes) {
    EXPECT_EQ(XorOfBytes(Bytes("0F F0")), 0xFFu);
    EXPECT_EQ(XorOfBytes(Bytes("01 02 04")), 7u);
    EXPECT_EQ(XorOfBytes(Bytes("55")), 0u);
    EXPECT_EQ(XorOfBytes({}), 0u);
}

TEST(OvxDataCheck, Crc32OfBytes) {
    EXPECT_EQ(Crc32OfBytes(test::Text("123456789")), 0xCBF43926u);
}

TEST(OvxDataCheck, GoesByTheTypeOfTheRecord) {
    const ByteVector frame = Bytes("01 02 04");
    const auto check = [&](const char* record) {
        const ByteVector bytes = Bytes(record);
        return CheckData(Extension(bytes), frame);
    };
    EXPECT_EQ(check("88 01 02 04 00 00 00 00"), Check::kRight);
    EXPECT_EQ(check("88 07 00 00 00 00 00 01"), Check::kRight);
    EXPECT_EQ(check("88 07 00 00 00 00 00 00"), Check::kWrong);
    EXPECT_EQ(check("88 07 00 00 00 00 00 02"), Check::kWrong);
    EXPECT_EQ(check("88 07 00 00 00 00 00 03"), Check::kWrong);
    EXPECT_EQ(check("81 00 08 19"), Check::kMissing);
}

TEST(OvxDecryptor, TakesKeysOfThreeLengths) {
    for (size_t length = 0; length < 70; ++length) {
        const bool made = Decryptor::Make(ByteVector(length)).has_value();
        EXPECT_EQ(made, length == 16 || length == 24 || length == 32) << length;
    }
}

class OvxDecrypt : public testing::Test {
  protected:
    // Decrypts a frame of `blocks` cipher blocks as a record says, and returns how each block came out: 'p' plain.
    std::string Blocks(const char* record, size_t blocks) {
        ByteVector frame;
        for (size_t i = 0; i < blocks; ++i)
            frame.insert(frame.end(), cipher.begin(), cipher.end());
        const ByteVector extension = Bytes(record);
        decryptor->Decrypt(Extension(extension), frame);
        std::string out;
        for (size_t i = 0; i < blocks; ++i) {
            const ByteVector block = test::Slice(frame, i * 16, 16);
            out += block == plain ? 'p' : block == cipher ? '.' : '?';
        }
        return out;
    }

    // FIPS-197, appendix C.1.
    const ByteVector plain = Bytes("00112233445566778899aabbccddeeff");
    const ByteVector cipher = Bytes("69c4e0d86a7b0430d8cdb78070b4c55a");
    std::optional<Decryptor> decryptor = Decryptor::Make(Bytes("000102030405060708090a0b0c0d0e0f"));
};

TEST_F(OvxDecrypt, WholeBlocksOfTheStretch) {
    EXPECT_EQ(Blocks("95 00 00 00 14 00 00 00", 4), "p...");
    EXPECT_EQ(Blocks("95 00 10 00 20 00 00 00", 4), ".pp.");
    EXPECT_EQ(Blocks("95 00 20 00 00 10 00 00", 4), "..pp");
    EXPECT_EQ(Blocks("95 00 40 00 20 00 00 00", 4), "....");
    EXPECT_EQ(Blocks("95 00 FF FF 20 00 00 00", 4), "....");
    EXPECT_EQ(Blocks("81 00 08 19", 4), "....");
}

TEST_F(OvxDecrypt, TheRecordKeepsTheLow16BitsOfTheLength) {
    const std::string all(4098, 'p');
    EXPECT_EQ(Blocks("95 00 00 00 08 00 00 00", 4098), std::string(4096, 'p') + "..");
    EXPECT_EQ(Blocks("95 00 00 00 20 00 00 00", 4098), "pp" + std::string(4096, '.'));
    decryptor->SetStretchLength(0x10020);
    EXPECT_EQ(Blocks("95 00 00 00 20 00 00 00", 4098), all);
    EXPECT_EQ(Blocks("95 00 00 00 10 00 00 00", 4098), "p" + std::string(4097, '.'));
}

}  // namespace
}  // namespace Orvane::OvxReader
