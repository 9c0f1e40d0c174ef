// Motion JPEG payload (RFC 2435): the frame's headers are parsed away and only the scan travels.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "MuxoraAPI.h"
#include "rtp/packet_run.h"

namespace Orvane::Muxora {

// What travels of a JPEG frame's headers. Fields and names are those of RFC 2435 3.1.
struct JpegHeaders {
    static constexpr uint32_t kMaxTables = 4;

    struct {
        uint8_t width = 0;  // in units of 8 pixels
        uint8_t height = 0;
    } main_header;

    struct {
        uint16_t restart_interval = 0;
        uint16_t restart_count = 0;  // 0: there is no restart header
    } restart_header;

    struct {
        uint8_t precision = 0;                       // a bit a table: 16-bit coefficients
        uint16_t length = 0;                         // bytes of all the tables
        std::array<uint8_t, kMaxTables> size{};      // bytes of each table
        std::array<uint32_t, kMaxTables> address{};  // where each stands in the frame
    } qtable_header;
};

// Reads the markers of a frame up to the scan, and gives the position of the scan's data. Safe on any bytes.
std::optional<uint32_t> parseJpegHeaders(const uint8_t* data, uint32_t length, JpegHeaders& headers);

// MX_FAILED if the headers can't be read, if the packets do not fit, or if the maximum length leaves no room.
uint32_t packetiseJpeg(const MXFrameInfo& frame, PacketRun& run);

}  // namespace Orvane::Muxora
