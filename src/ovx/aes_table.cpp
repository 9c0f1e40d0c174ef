// AES by tables, one block after the other, and the expansion of keys.
#include <bit>

#include "core/byte_writer.h"
#include "ovx/aes_kernels.h"
#include "ovx/aes_tables.h"

namespace Orvane::Muxora::Kernels {

namespace {

constexpr size_t kBlockSize = 16;

using State = std::array<uint32_t, 4>;  // the four columns

State Load(const uint8_t* block) {
    return {LoadWord(block), LoadWord(block + 4), LoadWord(block + 8), LoadWord(block + 12)};
}

void Store(const State& state, uint8_t* block) {
    for (size_t column = 0; column < 4; ++column)
        PutLE32(block + 4 * column, state[column]);
}

void AddRoundKey(State& state, const uint32_t* round_key) {
    for (size_t column = 0; column < 4; ++column)
        state[column] ^= round_key[column];
}

// Row r moves r places to the left; to the right with `step` 3.
uint32_t ShiftedColumn(const State& state, size_t column, size_t step) {
    return (state[column] & 0x000000FF) | (state[(column + step) % 4] & 0x0000FF00) |
           (state[(column + 2) % 4] & 0x00FF0000) | (state[(column + 3 * step) % 4] & 0xFF000000);
}

State ShiftRows(const State& state, size_t step) {
    return {ShiftedColumn(state, 0, step), ShiftedColumn(state, 1, step), ShiftedColumn(state, 2, step),
            ShiftedColumn(state, 3, step)};
}

uint32_t Mix(uint32_t column, const std::array<uint32_t, 256>& table) {
    return table[Row(column, 0)] ^ std::rotl(table[Row(column, 1)], 8) ^ std::rotl(table[Row(column, 2)], 16) ^
           std::rotl(table[Row(column, 3)], 24);
}

// FIPS-197 5.1, with SubBytes and MixColumns in one table.
void EncryptBlock(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination) {
    const uint32_t* round_key = schedule.round_keys.data();
    State state = Load(source);
    AddRoundKey(state, round_key);
    for (uint32_t round = 1; round < schedule.rounds; ++round) {
        state = ShiftRows(state, 1);
        for (uint32_t& column : state)
            column = Mix(column, kAesTables.sub_mix);
        AddRoundKey(state, round_key += 4);
    }
    state = ShiftRows(state, 1);
    for (uint32_t& column : state)
        column = Substitute(column, kAesTables.sbox);
    AddRoundKey(state, round_key + 4);
    Store(state, destination);
}

// FIPS-197 5.3.
void DecryptBlock(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination) {
    const uint32_t* round_key = schedule.round_keys.data() + size_t{4} * schedule.rounds;
    State state = Load(source);
    AddRoundKey(state, round_key);
    for (uint32_t round = schedule.rounds; round-- > 0;) {
        state = ShiftRows(state, 3);
        for (uint32_t& column : state)
            column = Substitute(column, kAesTables.inverse_sbox);
        AddRoundKey(state, round_key -= 4);
        if (round == 0) break;
        for (uint32_t& column : state)
            column = Mix(column, kAesTables.inverse_mix);
    }
    Store(state, destination);
}

}  // namespace

// FIPS-197 5.2.
void ExpandAesKey(AesSchedule& schedule, const uint8_t* key, uint32_t length) {
    const uint32_t key_words = length / 4;
    if (key_words == 0) return;
    schedule.rounds = key_words + 6;
    auto& words = schedule.round_keys;
    for (uint32_t i = 0; i < key_words; ++i)
        words[i] = LoadWord(key + 4 * size_t{i});
    uint32_t round_constant = 1;
    for (uint32_t i = key_words; i < 4 * (schedule.rounds + 1); ++i) {
        uint32_t word = words[i - 1];
        if (i % key_words == 0) {
            word = Substitute(std::rotr(word, 8), kAesTables.sbox) ^ round_constant;
            round_constant = round_constant << 1 ^ ((round_constant & 0x80) != 0 ? 0x11B : 0);
        } else if (key_words > 6 && i % key_words == 4) {
            word = Substitute(word, kAesTables.sbox);
        }
        words[i] = words[i - key_words] ^ word;
    }
}

void EncryptByTable(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination, size_t blocks) {
    for (; blocks != 0; --blocks, source += kBlockSize, destination += kBlockSize)
        EncryptBlock(schedule, source, destination);
}

void DecryptByTable(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination, size_t blocks) {
    for (; blocks != 0; --blocks, source += kBlockSize, destination += kBlockSize)
        DecryptBlock(schedule, source, destination);
}

}  // namespace Orvane::Muxora::Kernels
