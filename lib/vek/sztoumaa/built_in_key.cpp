/*
 * built_in_key.cpp - the built-in initial key and the salt of every session.
 *
 * Whoever has the program can compute the key; it hides a credential from a glance only. Other
 * constants would make every value stored so far unreadable.
 */
#include "sztoumaa/built_in_key.h"

namespace vek {
namespace {

// Read through volatile, so that no compiler can put the finished key into the program.
const volatile uint8_t FIRST_CONSTANT[SVC_PBE_KEY_LENGTH] = {
    0x48, 0xF9, 0x19, 0x94, 0x5E, 0x4C, 0x33, 0x0D, 0xDA, 0xB7, 0x14, 0x17, 0x15, 0xFF, 0x23, 0xC0,
    0x1A, 0x64, 0x98, 0x73, 0x54, 0x1B, 0x47, 0xBB, 0xFF, 0x58, 0xB3, 0x70, 0x9E, 0xAC, 0x63, 0x63,
};

const volatile uint8_t SECOND_CONSTANT[SVC_PBE_KEY_LENGTH] = {
    0xD8, 0x8B, 0x6D, 0xBD, 0x81, 0xE0, 0x6C, 0xBC, 0xA9, 0x45, 0x7C, 0x43, 0x48, 0x38, 0x39, 0xBE,
    0x68, 0x51, 0x0F, 0xF2, 0xAB, 0x6B, 0xCD, 0xD9, 0xD5, 0x7F, 0xE0, 0x46, 0x71, 0x74, 0xE3, 0xB1,
};

constexpr uint64_t SALT_WORDS[] = {0xC1A9A282F54F98BF, 0x46D3994ABD7A1819, 0x55B9DC2CC35D20DC};

static_assert(sizeof SALT_WORDS == SVC_PBE_SALT_LENGTH, "three words are the salt");

} // namespace

// The second constant is applied backwards.
void buildDefaultKey(std::span<uint8_t, SVC_PBE_KEY_LENGTH> key) {
    for (size_t i = 0; i < SVC_PBE_KEY_LENGTH; ++i)
        key.data()[i] =
            static_cast<uint8_t>(FIRST_CONSTANT[i] ^ SECOND_CONSTANT[SVC_PBE_KEY_LENGTH - 1 - i]);
}

// Each word lies in the salt with its lowest byte first, on every machine.
void buildFixedSalt(std::span<uint8_t, SVC_PBE_SALT_LENGTH> salt) {
    for (size_t i = 0; i < SVC_PBE_SALT_LENGTH; ++i)
        salt.data()[i] = static_cast<uint8_t>(SALT_WORDS[i / 8] >> (8 * (i % 8)));
}

} // namespace vek
