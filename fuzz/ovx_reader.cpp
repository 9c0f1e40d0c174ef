// The OVX reader on any bytes: what it says must be true of them.
#include "ovx_reader/reader.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <numeric>
#include <vector>

#include "ovx_reader/decryptor.h"
#include "ovx_reader/summary.h"

namespace {

void Require(bool truth) {
    if (!truth) std::abort();
}

// Makes the check sum of each head right, which the fuzzer would seldom meet.
void RepairHeads(std::vector<uint8_t>& bytes) {
    constexpr uint8_t kTag[] = {'O', 'R', 'V', 'X'};
    for (auto at = bytes.begin();; ++at) {
        at = std::search(at, bytes.end(), std::begin(kTag), std::end(kTag));
        if (bytes.end() - at < 24) return;
        at[23] = static_cast<uint8_t>(std::accumulate(at, at + 23, 0u));
    }
}

}  // namespace

// The first byte says whether heads are repaired.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t input_size) {
    using namespace Orvane::OvxReader;
    if (input_size == 0) return 0;
    std::vector<uint8_t> bytes(input + 1, input + input_size);
    if (input[0] % 2 != 0) RepairHeads(bytes);
    const uint8_t* const data = bytes.data();
    const size_t size = bytes.size();
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
