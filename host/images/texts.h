// What a confined process sends of a zip: the texts in it, names that end with ".txt". Each packet
// of the SOCK_SEQPACKET socket begins with one of these letters. The last packet is kWrong or kEnd;
// if neither comes, the process did not begin to read or has died.

#pragma once

#include <stddef.h>

namespace images {

enum class TextPacket : char {
    kText = 't',   // another text begins
    kBytes = 'b',  // bytes of the text follow
    kWrong = 'w',  // what is wrong with the zip follows; may be empty
    kEnd = 'e',
};

constexpr size_t kTextPacketBytes = 64 * 1024;  // with the letter

}  // namespace images
