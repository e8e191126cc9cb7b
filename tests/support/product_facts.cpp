// Prints what the product itself says of the facts that the manual pages repeat, a fact on a line:
//
//   message NUMBER TEXT       of the catalogue
//   status STATUS CODE TEXT   of a reason code, and the text of that code or nothing
//   key KEY                   of keystore.conf, that of the channel TO.HUB too
#include "common/catalogue.h"
#include "runvekcred/reason.h"
#include "shared.h"
#include "ztutl.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

void printMessages() {
    for (const ztm::CatalogueEntry &entry : ztm::messageCatalogue()) {
        const char level = entry.number >> 28 == 2 ? 'E' : entry.number >> 28 == 1 ? 'W' : 'I';
        std::string text = entry.text;
        std::replace(text.begin(), text.end(), '\n', ' ');
        printf("message ZTM%04X%c %s\n", entry.number & 0xFFFF, level, text.c_str());
    }
}

int32_t statusOf(uint32_t code) {
    int32_t status = static_cast<int32_t>(code);
    utlMapRCTo8bit(&status);
    return status;
}

void printStatus(uint32_t code) {
    const char *const text = svcPBEReasonText(code);
    printf(code > 0xFFFF ? "status %d 0x%08X %s\n" : "status %d %u %s\n", statusOf(code), code,
           text == nullptr ? "" : text);
}

// A small code is its own status whether it is in use or not, so those in use are named.
void printStatuses() {
    using namespace runvekcred;
    for (const int32_t code :
         {int32_t{SZTU_OK}, int32_t{REASON_CANNOT_OPEN}, int32_t{REASON_STOPPED},
          int32_t{REASON_USAGE}, int32_t{SZTU_CANNOT_PARSE}, int32_t{SZTU_CANNOT_READ},
          int32_t{SZTU_BAD_CONFIG}, int32_t{REASON_NOT_CONSISTENT}})
        printStatus(static_cast<uint32_t>(code));
    constexpr uint32_t LARGEST_PLAIN_CODE = 63;
    const int32_t unknown = statusOf(UINT32_MAX - 1);
    for (const uint32_t block : {0x0000U, 0x1000U, 0x2000U, 0x2080U, 0xFFFFU})
        for (uint32_t code = block << 16, i = 0; i <= UINT16_MAX; ++code, ++i)
            if (code > LARGEST_PLAIN_CODE && statusOf(code) != unknown)
                printStatus(code);
    printf("status %d\n", unknown);
}

void printKeys() {
    for (const vek::Key &key : vek::KEYS) {
        printf("key %s.%s\n", key.section, key.name);
        if (key.form == vek::Form::generalOrNamed)
            printf("key %s.%s%sTO.HUB\n", key.section, key.name, vek::CHANNEL_PART);
    }
}

} // namespace

int main() {
    printMessages();
    printStatuses();
    printKeys();
    return 0;
}
