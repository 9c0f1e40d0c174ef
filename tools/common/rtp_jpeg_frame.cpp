#include "common/rtp_jpeg_frame.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

// jpeglib.h wants size_t and FILE declared before.
#include <jpeglib.h>

#include "common/errors.h"

namespace Orvane::Muxora::Tools {

namespace {

constexpr uint8_t kMarker = 0xFF;
constexpr uint8_t kDqt = 0xDB;
constexpr uint8_t kSos = 0xDA;
constexpr unsigned kLargestSide = 2040;

[[noreturn]] void OnError(j_common_ptr info) {
    char text[JMSG_LENGTH_MAX];
    info->err->format_message(info, text);
    throw Failure(std::string("a JPEG frame cannot be read: ") + text);
}

void OnMessage(j_common_ptr /*info*/) {
}

struct Reading : jpeg_decompress_struct {
    explicit Reading(jpeg_error_mgr* errors) : jpeg_decompress_struct{} {
        err = errors;
        jpeg_create_decompress(this);
    }
    ~Reading() { jpeg_destroy_decompress(this); }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
};

struct Writing : jpeg_compress_struct {
    explicit Writing(jpeg_error_mgr* errors) : jpeg_compress_struct{} {
        err = errors;
        jpeg_create_compress(this);
    }
    ~Writing() { jpeg_destroy_compress(this); }
    Writing(const Writing&) = delete;
    Writing& operator=(const Writing&) = delete;
};

void CheckForm(const jpeg_decompress_struct& in) {
    const bool sampled = in.num_components == 3 && in.comp_info[0].h_samp_factor == 2 &&
                         in.comp_info[0].v_samp_factor == 2 && in.comp_info[1].h_samp_factor == 1 &&
                         in.comp_info[1].v_samp_factor == 1 && in.comp_info[2].h_samp_factor == 1 &&
                         in.comp_info[2].v_samp_factor == 1;
    if (!sampled) throw Failure("RTP carries JPEG with 4:2:0 colour alone, and this video has another one");
    if (in.comp_info[1].quant_tbl_no != in.comp_info[2].quant_tbl_no) {
        throw Failure("RTP carries JPEG with two quantisation tables, and this video has three");
    }
    if (in.image_width > kLargestSide || in.image_height > kLargestSide) {
        throw Failure("RTP carries JPEG up to 2040 by 2040, and this video has " + std::to_string(in.image_width) +
                      " by " + std::to_string(in.image_height));
    }
}

// One segment in the place of all: libjpeg writes a segment a table.
std::vector<uint8_t> WithOneTableSegment(std::span<const uint8_t> jpeg) {
    std::vector<uint8_t> out{jpeg[0], jpeg[1]};
    std::vector<uint8_t> tables;
    size_t place = 0;
    size_t at = 2;
    while (at + 4 <= jpeg.size() && jpeg[at] == kMarker && jpeg[at + 1] != kSos) {
        const size_t length = size_t{2} + (static_cast<size_t>(jpeg[at + 2]) << 8 | jpeg[at + 3]);
        if (length > jpeg.size() - at) break;
        const auto segment = jpeg.subspan(at, length);
        if (jpeg[at + 1] == kDqt) {
            if (tables.empty()) place = out.size();
            tables.insert(tables.end(), segment.begin() + 4, segment.end());
        } else {
            out.insert(out.end(), segment.begin(), segment.end());
        }
        at += length;
    }
    const size_t length = tables.size() + 2;
    const uint8_t head[] = {kMarker, kDqt, static_cast<uint8_t>(length >> 8 & 0xFF),
                            static_cast<uint8_t>(length & 0xFF)};
    tables.insert(tables.begin(), std::begin(head), std::end(head));
    out.insert(out.begin() + static_cast<std::ptrdiff_t>(place), tables.begin(), tables.end());
    out.insert(out.end(), jpeg.begin() + static_cast<std::ptrdiff_t>(at), jpeg.end());
    return out;
}

}  // namespace

std::vector<uint8_t> JpegForRtp(std::span<const uint8_t> frame) {
    jpeg_error_mgr errors{};
    jpeg_std_error(&errors);
    errors.error_exit = OnError;
    errors.output_message = OnMessage;

    Reading in(&errors);
    jpeg_mem_src(&in, frame.data(), static_cast<unsigned long>(frame.size()));
    jpeg_read_header(&in, TRUE);
    CheckForm(in);
    jvirt_barray_ptr* const coefficients = jpeg_read_coefficients(&in);

    // libjpeg gives the buffer by malloc, and may move it while it writes.
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    std::vector<uint8_t> written;
    try {
        Writing out(&errors);
        jpeg_mem_dest(&out, &bytes, &size);
        jpeg_copy_critical_parameters(&in, &out);
        // The luma's table in slot 0, the chroma's in slot 1, whichever slots they had.
        const JQUANT_TBL luma = *in.quant_tbl_ptrs[in.comp_info[0].quant_tbl_no];
        const JQUANT_TBL chroma = *in.quant_tbl_ptrs[in.comp_info[1].quant_tbl_no];
        for (auto& table : out.quant_tbl_ptrs)
            table = nullptr;
        for (const int slot : {0, 1}) {
            out.quant_tbl_ptrs[slot] = jpeg_alloc_quant_table(reinterpret_cast<j_common_ptr>(&out));
            *out.quant_tbl_ptrs[slot] = slot == 0 ? luma : chroma;
            out.quant_tbl_ptrs[slot]->sent_table = FALSE;
        }
        for (int i = 0; i < out.num_components; ++i) {
            out.comp_info[i].quant_tbl_no = i == 0 ? 0 : 1;
            out.comp_info[i].dc_tbl_no = i == 0 ? 0 : 1;
            out.comp_info[i].ac_tbl_no = i == 0 ? 0 : 1;
        }
        out.write_JFIF_header = FALSE;
        out.write_Adobe_marker = FALSE;
        out.restart_interval = 0;
        out.optimize_coding = FALSE;
        jpeg_write_coefficients(&out, coefficients);
        jpeg_finish_compress(&out);
        written.assign(bytes, bytes + size);
    } catch (...) {
        std::free(bytes);
        throw;
    }
    std::free(bytes);
    jpeg_finish_decompress(&in);
    return WithOneTableSegment(written);
}

}  // namespace Orvane::Muxora::Tools
