/*
 * show.cpp - the command that prints the record which a reader hands to its program.
 */
#include "vekctl/commands.h"
#include "vekctl/error_text.h"
#include "vekctl/loaded_file.h"
#include "vekctl/suggestion.h"

#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

namespace vekctl {

namespace {

constexpr char SECTIONS[] = "cms, crl, ocsp, pem, pkcs11 and vekcred";

struct Options {
    CommonOptions common;
    std::string section;
    std::string file;
    std::optional<std::string> channel;
};

// The fields of one record in their order. What a credential's field holds is not shown.
class Fields {
public:
    explicit Fields(Report *shownBy) : report(shownBy) {}

    template <size_t size> void text(const char *name, const char (&field)[size]) {
        put(name, shown({field, strnlen(field, size)}));
    }
    template <size_t size> void secret(const char *name, const char (&field)[size]) {
        put(name, field[0] == '\0' ? "" : "(hidden)");
    }
    void number(const char *name, int32_t value) {
        report->json()["record"][name] = value;
        report->answer(std::string(name) + " = " + std::to_string(value));
    }

private:
    void put(const char *name, const std::string &value) {
        report->json()["record"][name] = value;
        report->answer(std::string(name) + " = " + value);
    }

    Report *report;
};

void tellCms(const SztouKsConfig &record, Fields *fields) {
    fields->text("keystore", record.keystore);
    fields->text("certificate", record.certificate);
    fields->number("fips", record.fips);
    fields->number("forceFipsOff", record.forceFipsOff);
}

void tellOcsp(const SztouOcspConfig &record, Fields *fields) {
    fields->number("enable", record.enable);
    fields->text("url", record.url);
    fields->text("httpProxyHost", record.httpProxyHost);
    fields->number("httpProxyPort", record.httpProxyPort);
    fields->number("unknown", record.unknown);
    fields->number("nonceGeneration", record.nonceGeneration);
    fields->number("nonceCheck", record.nonceCheck);
    fields->number("nonceSize", record.nonceSize);
    fields->number("httpGet", record.httpGet);
    fields->number("maxResponseSize", record.maxResponseSize);
    fields->number("cacheSize", record.cacheSize);
    fields->number("timeout", record.timeout);
    fields->number("signature", record.signature);
    fields->number("log", record.log);
}

void tellPem(const SztouPemConfig &record, Fields *fields) {
    fields->text("privateKey", record.privateKey);
    fields->text("publicKey", record.publicKey);
    fields->secret("password", record.password);
    fields->number("fips", record.fips);
    fields->number("forceFipsOff", record.forceFipsOff);
    fields->number("checkpurpose", record.checkpurpose);
    fields->number("encrypted", record.encrypted);
}

void tellPkcs11(const SztouPkcs11Config &record, Fields *fields) {
    fields->text("library", record.library);
    fields->text("certificate", record.certificate);
    fields->text("token", record.token);
    fields->secret("token_pin", record.token_pin);
    fields->text("secondary_keystore", record.secondary_keystore);
    fields->number("fips", record.fips);
    fields->number("encrypted", record.encrypted);
}

void tellCrl(const SztouCrlConfig &record, Fields *fields) {
    const SztouLdapServer &server = record.ldapServers[0];
    fields->number("cdp", record.cdp);
    fields->text("ldap.host", server.host);
    fields->number("ldap.port", server.port);
    fields->text("ldap.user", server.user);
    fields->secret("ldap.pass", server.pass);
    fields->number("ldap.version", server.version);
    fields->text("ldapLibrary", record.ldapLibrary);
    fields->number("ldapCacheLifetime", record.ldapCacheLifetime);
    fields->number("ldapCacheSize", record.ldapCacheSize);
    fields->text("httpProxyHost", record.httpProxyHost);
    fields->number("httpProxyPort", record.httpProxyPort);
    fields->number("httpMaxResponseSize", record.httpMaxResponseSize);
    fields->number("httpTimeout", record.httpTimeout);
    fields->number("httpCacheSize", record.httpCacheSize);
    fields->number("log", record.log);
    fields->number("encrypted", record.encrypted);
}

void tellRecord(std::string_view section, const Records &records, Fields *fields) {
    if (section == vek::CMS_SECTION)
        tellCms(records.cms, fields);
    else if (section == vek::OCSP_SECTION)
        tellOcsp(records.ocsp, fields);
    else if (section == vek::PEM_SECTION)
        tellPem(records.pem, fields);
    else if (section == vek::PKCS11_SECTION)
        tellPkcs11(records.pkcs11, fields);
    else if (section == vek::CRL_SECTION)
        tellCrl(records.crl, fields);
    else
        fields->text("keyfile", records.keyFile);
}

Outcome showRecord(const Options &options, const std::string &path, Report *report) {
    LoadedFile file;
    if (!file.load(path, report))
        return Outcome::failed;
    const ReaderName reader = {options.section, options.channel.has_value(),
                               std::string(channelAsRead(options.channel.value_or("")))};
    bool needsKey = false;
    bool hasSection = false;
    for (const Item &item : file.settings().items()) {
        hasSection = hasSection || item.section == reader.section;
        needsKey = needsKey ||
                   (item.known.isMarker() && reader.reads(item) && saysYes(item.reading.value));
    }
    if (!hasSection) {
        report->problem("the file has no section " + options.section);
        return Outcome::failed;
    }
    const auto session =
        needsKey ? file.openSession(options.common, reader.section, report) : nullptr;
    if (needsKey && session == nullptr)
        return Outcome::failed;
    SvcPBESession none = {};
    ztm::Wiping<Records> records{};
    const ReaderResult result =
        file.settings().run(reader, session == nullptr ? &none : session->record(), &records.value);
    if (result.code != SZTU_OK) {
        const auto &items = file.settings().items();
        const auto found = std::ranges::find(items, result.errorKey,
                                             [](const Item &item) { return item.reading.key; });
        report->problem("its reader fails with " + codeText(result.code) +
                            "; 'vekctl check' tells more",
                        found == items.end() ? 0 : found->line, result.errorKey);
        return Outcome::failed;
    }
    Fields fields(report);
    tellRecord(reader.section, records.value, &fields);
    return Outcome::clean;
}

int show(const Options &options) {
    const std::vector<std::string> sections(std::begin(vek::SECTIONS), std::end(vek::SECTIONS));
    const bool isForChannel = !options.channel || options.section == vek::PEM_SECTION ||
                              options.section == vek::CMS_SECTION;
    if (std::ranges::count(sections, options.section) == 0 || !isForChannel) {
        if (!isForChannel)
            throw UsageError("only cms and pem have channels");
        const std::string meant = didYouMean(nearest(options.section, sections));
        throw UsageError("there is no such section" +
                         (meant.empty() ? std::string("; they are ") + SECTIONS : meant));
    }
    Report report("show", options.common);
    const std::vector<std::string> files =
        options.file.empty() ? std::vector<std::string>() : std::vector{options.file};
    return report.overFiles(
        files, [&](const std::string &path) { return showRecord(options, path, &report); });
}

} // namespace

void addShow(Command &command) {
    const auto options = std::make_shared<Options>();
    command.commonOptions(&options->common);
    command.operand("SECTION", &options->section, Need::required, SECTIONS);
    command.operand("FILE", &options->file, Need::optional,
                    "keystore.conf; else the standard place");
    command.option("--channel", "NAME", &options->channel, "the record of a channel");
    command.work([options] { return show(*options); });
}

} // namespace vekctl
