// The initial key file. The input is its content.
#include "fuzz_support.h"
#include "support/reader_judge.h"

#include <algorithm>
#include <cstring>
#include <openssl/evp.h>
#include <strings.h>

namespace {

std::string keyOf(std::string_view content) {
    static const FileInMemory file;
    require(file.write(content));
    uint8_t *key = nullptr;
    int32_t length = -1;
    const uint32_t reason = svcPBEReadInitialKeyFile(file.path.c_str(), &key, &length);
    require(reason == (length == 0 ? SVC_PBE_KEY_FILE_BAD_LENGTH : SVC_PBE_OK));
    const std::string copy(asText(key, static_cast<size_t>(length)));
    (void)svcPBEFreeBuf(key, length);
    return copy;
}

// The content is a form of the key, and the key is one too. The last bits of base64 are padding.
void checkFullStrength(const std::string &content, const std::string &key) {
    char hexadecimal[2 * SVC_PBE_KEY_LENGTH + 1], base64[45];
    for (size_t i = 0; i < key.size(); ++i)
        (void)snprintf(hexadecimal + 2 * i, 3, "%02x", static_cast<uint8_t>(key[i]));
    (void)EVP_EncodeBlock(reinterpret_cast<uint8_t *>(base64),
                          reinterpret_cast<const uint8_t *>(key.data()), SVC_PBE_KEY_LENGTH);
    require(content == key || strncasecmp(content.c_str(), hexadecimal, 64) == 0 ||
            strncmp(content.c_str(), base64, 42) == 0);
    require(keyOf(key) == key);
}

// A passphrase is what stands in the file less one line end, whichever that is; zeros pad it.
void checkPassphrase(std::string_view content, const std::string &key) {
    const size_t lineEnd = content.ends_with("\r\n") ? 2 : content.ends_with('\n') ? 1 : 0;
    std::string passphrase(content.substr(0, content.size() - lineEnd));
    if (!passphrase.empty())
        passphrase.resize(std::max<size_t>(passphrase.size(), SVC_PBE_PASSPHRASE_PADDING));
    require(key == passphrase);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view content = asText(data, size);
    const std::string key = keyOf(content);
    if (key.size() == SVC_PBE_KEY_LENGTH)
        checkFullStrength(std::string(content), key);
    else
        checkPassphrase(size > SVC_PBE_KEY_FILE_LIMIT ? "" : content, key);
    return 0;
}
