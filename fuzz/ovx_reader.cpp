// The OVX reader on any bytes: what it says must be true of them.
#include "ovx_reader/reader.h"

#include <cstdlib>
#include <vector>

#include "ovx_reader/decryptor.h"
#include "ovx_reader/summary.h"

namespace {

void Require(bool truth) {
    if (!truth) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orvane::OvxReader;
    const uint8_t key[16] = {};
    auto decryptor = Decryptor::Make(key);
    Summary summary;
    Reader reader({data, size});
    uint64_t at = 0;
    while (const auto piece = reader.Next()) {
        // The pieces cover the input.
        Require(piece->offset == at && piece->length != 0 && piece->length <= size - at);
        at += piece->length;
        // What is called intact has its tags, and lies in its place.
        if (piece->Intact()) {
            Require(piece->head.length == piece->length);
            Require(kHeadSize + piece->extension.Block().size() + piece->frame.size() + kTailSize == piece->length);
            Require(piece->frame.data() == data + piece->offset + piece->length - kTailSize - piece->frame.size());
        } else {
            Require(!DamageText(*piece).empty());
        }
        ByteSpan block = piece->extension.Block();
        while (const auto record = TakeRecord(block))
            Require(!record->Name().empty() && !record->Describe().empty());
        std::vector<uint8_t> frame(piece->frame.begin(), piece->frame.end());
        decryptor->Decrypt(piece->extension, frame);
        summary.Add(*piece);
    }
    Require(at == size && summary.bytes == size);
    return 0;
}
