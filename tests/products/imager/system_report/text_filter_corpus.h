// Generated texts for the redaction filters: fragments that the rules act on (key words in mixed case,
// paths, addresses, certificates, logins), fragments that almost match, separators, CR LF and LF, bytes
// 0x80-0xFF and NUL, joined at random with a bounded line length; and a plain product log for timing.
#pragma once

#include <cstdint>
#include <cstdio>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace FilterCorpus {

inline const std::vector<std::string>& TextFragments() {
    static const std::vector<std::string> fragments = {
        "UserName: jdoe", "user name=alice", "USERNAME", "usernames", "user  name x", "username:", "User Name:",
        "uSeRnAmE", "CurUser=bob", "curuser", "CURUSER ", "Password=secret", "PASSWORD", "passwords", "pass word",
        "private key", "PrivateKey", "PRIVATE", "SeLockMemoryPrivilege = S-1-5-32-544", "selockmemoryprivilege = ",
        "SeLockMemoryPrivilege=", "C:\\Users\\jdoe\\AppData\\x.log", "\\Users\\", "\\USERS\\bob", "\\Users\\\\",
        "D:\\users\\a\\b\\Users\\c", "\\Users\\x", "\\User\\y", "Users", "\\", "\\\\server\\share",
        "john.doe@example.com", "a@b.commmm", "x@y.z", ".a-b_c@d-e.fg", "a@b@c.de", "@", "@@x.yy", "mail@host.info.",
        "ab@cd.e1_2", "first.last@sub.domain.org", "-@-.--", "x@y.", "name@host",
        "-----BEGIN CERTIFICATE-----\nMIIBszCCAVmgAwIBAgIU\r\nAbCd+/==\n-----END CERTIFICATE-----",
        "BEGIN CERTIFICATE-----x y-----END CERTIFICATE", "BEGIN CERTIFICATE-----abc", "-----END CERTIFICATE",
        "begin certificate-----QUJD-----end certificate", "<LocationLogin>bob</LocationLogin>", "<LocationLogin>",
        "</LocationLogin>", "<locationlogin>x</LOCATIONLOGIN>", "<LocationLogin></LocationLogin>", "the", "quick",
        "error", "0x1F", "id_42", "-", ".", "_", "<", ">", "]", "[", ":", "=", " ", " ", " ", "\t", "$1", "$&",
        "\x80", "\xC3\xA9", "\xFF", std::string("\0", 1), "\xE9t\xE9", "\xC4\xB0", "\r", "\r\n", "\n\n",
    };
    return fragments;
}

inline const std::vector<std::u16string>& WideTextFragments() {
    static const std::vector<std::u16string> fragments = [] {
        std::vector<std::u16string> list;
        for (const std::string& text : TextFragments()) {
            std::u16string wide;
            for (char c : text) wide += static_cast<char16_t>(static_cast<unsigned char>(c));
            list.push_back(wide);
        }
        for (const char16_t* text : {
                 u"username<", u"username>", u"username]", u"username=<b>x</b>", u"[username]", u"Username\u00E9",
                 u"\u00E9", u"\u00C4", u"\u0436", u"\u65E5\u672C", u"\U0001F600", u"\u00DF", u"\u0130", u"\u212A",
                 u"\u017F", u"\uFEFF", u"jos\u00E9@ex\u00E4mple.com", u"\u0434@\u0434.\u0434\u0434",
                 u"a\u00E9b@c.de", u"x@\u00E4\u00E4.de", u"x@y.\u00E9\u00E9", u"USER\u212ANAME", u"PR\u0130VATE",
                 u"pa\u017F\u017Fword", u"\u2028", u"\u0661\u0662@x.yy", u"\uFF21@\uFF22.\uFF23\uFF24"}) {
            list.push_back(text);
        }
        list.push_back(std::u16string(1, char16_t(0xD800)));
        list.push_back(std::u16string(1, char16_t(0xDC00)));
        list.push_back(std::u16string{char16_t(0xDBFF), u'x'});
        return list;
    }();
    return fragments;
}

// Joins random fragments into about `size` units; no line (counted between LFs) grows beyond `maxLine`.
// Lines also end at random, unless `fullLines`: then fragments holding a LF are left out and each line
// runs to about `maxLine`.
template <typename String>
String Join(const std::vector<String>& fragments, std::mt19937& random, std::size_t size, std::size_t maxLine,
            bool fullLines) {
    const auto lf = typename String::value_type('\n');
    String text;
    std::size_t line = 0;
    while (text.size() < size) {
        const String& fragment = fragments[random() % fragments.size()];
        if (fullLines && fragment.find(lf) != String::npos) continue;
        if (line + fragment.size() > maxLine) {
            text += lf;
            line = 0;
        }
        text += fragment;
        std::size_t end = fragment.rfind(lf);
        line = end == String::npos ? line + fragment.size() : fragment.size() - end - 1;
        if (!fullLines && random() % 8 == 0) {
            text += typename String::value_type(random() % 3 == 0 ? '\r' : '\n');
            if (text.back() == '\r') text += lf;
            line = 0;
        }
    }
    return text;
}

inline std::string Text(std::mt19937& random, std::size_t size, std::size_t maxLine, bool fullLines = false) {
    return Join(TextFragments(), random, size, maxLine, fullLines);
}

inline std::vector<std::uint16_t> WideText(std::mt19937& random, std::size_t size, std::size_t maxLine,
                                           bool fullLines = false) {
    std::u16string text = Join(WideTextFragments(), random, size, maxLine, fullLines);
    return std::vector<std::uint16_t>(text.begin(), text.end());
}

// A product log of about `size` bytes: CR LF lines of about a hundred bytes, one in `secretEvery` (on
// average) with a secret.
inline std::string Log(std::size_t size, std::uint32_t variant = 1, std::uint32_t secretEvery = 20) {
    static const char* const messages[] = {
        "Backup task 'Daily documents' started, 1834 files queued",
        "Volume \\\\?\\Volume{6f1c2a7e-0000-0000-0000-100000000000}\\ snapshot created in 412 ms",
        "Copied 52428800 bytes to target E:\\Backups\\Daily\\2024-05-01.img at 98.2 MB/s",
        "Scheduler woke up: next run at 2024-05-02 02:00:00, retention 14 days",
        "Verifying archive chunk 17 of 64: checksum 0x9A3F11C2 matches",
        "Network location \\\\nas01\\backup reachable, free space 1.82 TB",
        "Settings loaded from C:\\ProgramData\\Brendix\\Cobaltine Home\\settings.ini",
    };
    static const char* const secrets[] = {
        "Logon as UserName: jdoe on domain OFFICE",
        "Opened C:\\Users\\jdoe\\Documents\\tax-2023.xlsx for reading",
        "Notification sent to john.doe@example.com and backup-admin@corp.example.org",
        "Session Password=Tr0ub4dor&3 accepted",
        "Cloud account <LocationLogin>jdoe@cloud</LocationLogin> connected",
        "Imported key -----BEGIN CERTIFICATE-----MIIBszCCAVmgAwIBAgIUe3Qx-----END CERTIFICATE-----",
    };
    std::mt19937 random(variant);
    std::string log;
    log.reserve(size + 256);
    unsigned second = 0;
    while (log.size() < size) {
        char stamp[64];
        std::snprintf(stamp, sizeof stamp, "2024-05-01 %02u:%02u:%02u.%03u [%s] ", second / 3600 % 24, second / 60 % 60,
                      second % 60, static_cast<unsigned>(random() % 1000), random() % 10 ? "info" : "warning");
        ++second;
        log += stamp;
        log += random() % secretEvery == 0 ? secrets[random() % std::size(secrets)] : messages[random() % std::size(messages)];
        log += "\r\n";
    }
    return log;
}

}  // namespace FilterCorpus
