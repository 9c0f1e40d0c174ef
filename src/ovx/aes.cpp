#include "ovx/aes.h"

#include <bit>
#include <cstring>

#include "core/byte_writer.h"
#include "ovx/aes_tables.h"

namespace Orvane::Muxora {

namespace {

using State = std::array<uint32_t, 4>;  // the four columns

uint32_t LoadWord(const uint8_t* bytes) {
    return bytes[0] | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

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

uint8_t Row(uint32_t column, int row) {
    return static_cast<uint8_t>(column >> (8 * row));
}

uint32_t Substitute(uint32_t word, const std::array<uint8_t, 256>& box) {
    return box[Row(word, 0)] | uint32_t{box[Row(word, 1)]} << 8 | uint32_t{box[Row(word, 2)]} << 16 |
           uint32_t{box[Row(word, 3)]} << 24;
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

}  // namespace

bool CAes::setKey(const void* key, uint32_t length) {
    if (key == nullptr || length == 0 || length >= key_.size() || (length % 2 != 0 && length != 1)) return false;
    if (length == key_length_ && std::memcmp(key, key_.data(), length) == 0) return true;
    schedule_.reset();
    key_.fill(0);
    key_length_ = 0;
    if (length != 16 && length != 24 && length != 32) return false;
    schedule_ = std::make_unique<Schedule>();
    std::memcpy(key_.data(), key, length);
    key_length_ = length;
    Expand();
    return true;
}

// FIPS-197 5.2.
void CAes::Expand() {
    const uint32_t key_words = key_length_ / 4;
    schedule_->key_words = key_words;
    schedule_->rounds = key_words + 6;
    auto& words = schedule_->round_keys;
    for (uint32_t i = 0; i < key_words; ++i)
        words[i] = LoadWord(key_.data() + 4 * size_t{i});
    uint32_t round_constant = 1;
    for (uint32_t i = key_words; i < 4 * (schedule_->rounds + 1); ++i) {
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

bool CAes::encrypt(const uint8_t* source, uint32_t length, uint8_t* destination, uint32_t* capacity) const {
    if (source == nullptr || destination == nullptr || capacity == nullptr || length < kBlockSize) return false;
    if (schedule_ == nullptr) return false;
    const uint32_t whole = length / kBlockSize * kBlockSize;
    if (*capacity < whole) return false;
    for (uint32_t at = 0; at < whole; at += kBlockSize)
        EncryptBlock(*schedule_, source + at, destination + at);
    *capacity = whole;
    return true;
}

bool CAes::decrypt(const uint8_t* source, uint32_t length, uint8_t* destination, uint32_t* capacity) const {
    if (source == nullptr || destination == nullptr || capacity == nullptr) return false;
    if (schedule_ == nullptr) return false;
    const uint32_t whole = length / kBlockSize * kBlockSize;
    if (*capacity < whole) return false;
    for (uint32_t at = 0; at < whole; at += kBlockSize)
        DecryptBlock(*schedule_, source + at, destination + at);
    *capacity = whole;
    return true;
}

// FIPS-197 5.1, with SubBytes and MixColumns in one table.
void CAes::EncryptBlock(const Schedule& schedule, const uint8_t* source, uint8_t* destination) {
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
void CAes::DecryptBlock(const Schedule& schedule, const uint8_t* source, uint8_t* destination) {
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

}  // namespace Orvane::Muxora
