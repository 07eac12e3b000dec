// The product data item: its two folder entries, the online-backup details, and links in product
// folders. A report run over product folders through the real executable is product_data_e2e.sh.
#include "products/imager/system_report/report_product_data.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "core/common/strings.h"
#include "products/imager/system_report/archive_name.h"
#include "products/imager/system_report/certificate_text.h"
#include "products/imager/system_report/filters/text_data_filter.h"
#include "products/imager/system_report/link_check.h"
#include "products/imager/system_report/online_backup_details.h"
#include "products/imager/system_report/report_manager.h"
#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;
using namespace SystemReport;
using TestSupport::ReadFile;
using TestSupport::TempFolder;
using TestSupport::WriteFile;

class FakeFolders final : public Common::FolderService {
public:
    std::optional<fs::path> common;
    std::optional<fs::path> user;
    std::optional<std::wstring> userName;
    std::optional<fs::path> CommonAppData() override { return common; }
    std::optional<fs::path> UserAppData() override { return user; }
    std::optional<std::wstring> UserName() override { return userName; }
};

// The certificate and the links of make_product_fixtures.sh, which ctest runs before these tests.
class ProductFixtures : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(fs::exists(fixtures / ".stamp")) << "no fixtures in " << Common::PathToUtf8(fixtures)
                                                     << " (ctest's product_fixtures step makes them)";
    }
    const fs::path fixtures = SR_PRODUCT_FIXTURES_DIR;
    const fs::path certificates = fixtures / "certificates";
    const fs::path links = fixtures / "links";
};

// The two folders, their names in the archive and which one is filtered: product_data_e2e.sh.
TEST(ReportProductDataTest, AnUnnamedUserIsUserAndAFolderThatCannotBeLocatedAddsNothing) {
    TempFolder temp;
    auto folders = std::make_shared<FakeFolders>();
    folders->user = temp.path() / "user";
    ReportContext context;
    context.folders = folders;
    context.textFilter = std::make_shared<TextDataFilter>();
    FileEntries entries;
    ASSERT_TRUE(ReportProductData(context).Create(temp.path(), entries).Succeeded());
    const std::wstring s(1, fs::path::preferred_separator);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].source, temp.path() / "user" / "Brendix" / "");
    EXPECT_EQ(entries[0].archiveName, L"Application Data" + s + L"User" + s + L"Brendix" + s);
    EXPECT_TRUE(entries[0].folder && entries[0].recursive);
    folders->user.reset();
    entries.clear();
    EXPECT_TRUE(ReportProductData(context).Create(temp.path(), entries).Succeeded());
    EXPECT_TRUE(entries.empty());
}

TEST_F(ProductFixtures, CertificatesPrintFromPemAndDerAndWhatCannotBePrintedIsNamed) {
    const std::string pem = ReadFile(certificates / "client.pem");
    const std::string der = ReadFile(certificates / "client.der");
    auto bytes = [](const std::string& text) {
        return std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    };
    std::string fromPem, fromDer;
    ASSERT_TRUE(PrintCertificate(bytes(pem), fromPem).Succeeded());
    ASSERT_TRUE(PrintCertificate(bytes(der), fromDer).Succeeded());
    EXPECT_EQ(fromPem, fromDer);

    // Cross-checked against the openssl command's own view of the certificate ("subject=CN = ...").
    std::string subject = ReadFile(certificates / "subject.txt");
    subject = subject.substr(subject.find('=') + 1);
    subject = subject.substr(subject.find_first_not_of(' '));
    EXPECT_NE(fromPem.find("Subject: " + subject.substr(0, subject.find('\n')) + "\r\n"), std::string::npos) << fromPem;

    // The error's text is what the online-backup details print (their test below).
    std::string text;
    for (const std::string& bad : {std::string("not a certificate"), pem.substr(0, pem.size() / 2), std::string()})
        EXPECT_TRUE(PrintCertificate(bytes(bad), text).Failed()) << bad;
}

TEST_F(ProductFixtures, OnlineBackupDetailsDescribeEachCertificateOfEachOnlineBackupFolder) {
    TempFolder temp;
    const fs::path maker = temp.path() / "Brendix";
    EXPECT_EQ(Common::WideToUtf8(WriteOnlineBackupDetails(maker).Message()), "No OnlineBackup folder is available");
    fs::create_directories(maker / "Plain");
    EXPECT_TRUE(WriteOnlineBackupDetails(maker).Failed());

    const fs::path first = maker / "Cobaltine Home" / "OnlineBackup";
    const fs::path second = maker / "Other" / "OnlineBackup";
    fs::create_directories(first / "folder.crt");
    fs::create_directories(second);
    fs::copy_file(certificates / "client.pem", first / "client.crt");
    fs::copy_file(certificates / "client.der", first / "binary.CRT");
    WriteFile(first / "broken.crt", "-----BEGIN CERTIFICATE-----\nnot base64\n-----END CERTIFICATE-----\n");
    WriteFile(first / "notes.txt", "not a certificate file");
    ASSERT_TRUE(WriteOnlineBackupDetails(maker).Succeeded());

    const std::string details = ReadFile(first / "online_backup.txt");
    const std::string size = std::to_string(fs::file_size(first / "client.crt"));
    EXPECT_NE(details.find("Filename: 'client.crt'\r\nSize: " + size + " bytes\r\nCreation time: "), std::string::npos);
    EXPECT_TRUE(std::regex_search(details, std::regex("Creation time: \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d UTC\r\n-----\r\n")));
    EXPECT_NE(details.find("Filename: 'binary.CRT'"), std::string::npos);
    EXPECT_NE(details.find("Filename: 'broken.crt'\r\n"), std::string::npos);
    EXPECT_NE(details.find("-----\r\nFailed to retrieve certificate contents\r\n"), std::string::npos);
    EXPECT_EQ(details.find("notes.txt"), std::string::npos);
    EXPECT_EQ(details.find("folder.crt"), std::string::npos);
    // The other folder has no certificates: only the version line.
    EXPECT_EQ(ReadFile(second / "online_backup.txt"), "Product version: 24.7.38530\r\n\r\n");
}

// Links out of a product folder, the folder itself being one included, are never followed: not by
// the folder copy, not by the online-backup details, not when writing the scrubbed copy of settings.
// Under Wine only the links to folders are links; the planted copy is seen as a plain file.
TEST_F(ProductFixtures, LinksAreNeverFollowed) {
    const struct {
        fs::path path;
        bool link;
    } cases[] = {
        {links / "data" / "link-dir", true},       {links / "data" / "loop", true},
        {links / "root-link", true},               {links / "root-link" / "", true},
        {links / "data" / "link-file.txt", true}, {links / "data" / "dangling-link", true},
        {links / "data", false},                   {links / "data" / "kept.txt", false},
        {links / "missing", false},
    };
    for (const auto& entry : cases) {
        if (entry.link && fs::symlink_status(entry.path).type() == fs::file_type::not_found) continue;
        EXPECT_EQ(IsLink(entry.path), entry.link) << Common::PathToUtf8(entry.path);
    }

    EXPECT_TRUE(WriteOnlineBackupDetails(links / "root-link").Failed());
    EXPECT_FALSE(fs::exists(links / "outside" / "Cobaltine Home" / "OnlineBackup" / "online_backup.txt"));

    struct FolderItem : Report {
        FileEntries toAdd;
        Common::Error Create(const fs::path&, FileEntries& entries) override {
            entries.insert(entries.end(), toAdd.begin(), toAdd.end());
            return {};
        }
    };
    auto item = std::make_shared<FolderItem>();
    item->toAdd = {{links / "data", L"d/", L"t", nullptr, true, true},
                   {links / "root-link" / "", L"r/", L"t", nullptr, true, true},
                   {links / "settings", L"s/", L"t", nullptr, true, true}};
    TempFolder temp;
    ReportManager manager;
    manager.Add(item);
    ASSERT_TRUE(manager.Create(temp.path()).Succeeded());
    ASSERT_TRUE(manager.SaveAs(temp.path() / "r.zip").Succeeded());
    auto archive = TestSupport::ReadZip(temp.path() / "r.zip");
    ASSERT_TRUE(archive.has_value());
    std::vector<std::string> names;
    for (const auto& [name, entry] : *archive) names.push_back(name);
    // Under Wine too the planted copy, a plain file by its attributes, is known as a link by its final path.
    EXPECT_EQ(names, (std::vector<std::string>{"d/kept.txt", "s/s.ini"}));
    EXPECT_EQ(archive->at("s/s.ini").data, "keep=1\r\n");
    EXPECT_EQ(ReadFile(links / "outside" / "victim.ini"), "not to be overwritten");
}

// UTF-16 logs in the machine-wide folder are redacted by the 16-bit rules, in either byte order, and the
// per-user folder is stored as it is.
TEST_F(ProductFixtures, Utf16LogsOfTheMachineWideFolderPassTheSixteenBitFilter) {
    TempFolder temp;
    auto folders = std::make_shared<FakeFolders>();
    folders->common = temp.path() / "common";
    folders->user = temp.path() / "user";
    folders->userName = L"u";
    for (const fs::path& root : {*folders->common, *folders->user}) {
        fs::create_directories(root / "Brendix");
        fs::copy(fixtures / "utf16", root / "Brendix");
    }
    ReportContext context;
    context.folders = folders;
    context.textFilter = std::make_shared<TextDataFilter>();
    context.wideTextFilter = std::make_shared<TextDataFilterWString>();
    ReportManager manager;
    manager.Add(std::make_shared<ReportProductData>(context));
    ASSERT_TRUE(manager.Create(temp.path()).Succeeded());
    ASSERT_TRUE(manager.SaveAs(temp.path() / "r.zip").Succeeded());
    const auto archive = TestSupport::ReadZip(temp.path() / "r.zip");
    ASSERT_TRUE(archive.has_value());
    const auto stored = [&](const std::string& name) {
        const auto found = archive->find(name);
        return found == archive->end() ? std::string("(missing)") : found->second.data;
    };
    const std::string machine = "Application Data/All Users/Brendix/";
    const std::string littleEndian = stored(machine + "UTF-16LE.log");
    std::string bigEndian = stored(machine + "UTF-16BE.log");
    for (std::size_t i = 0; i + 1 < bigEndian.size(); i += 2) std::swap(bigEndian[i], bigEndian[i + 1]);
    EXPECT_NE(littleEndian.find(Common::WideToUtf16Le(L"Password ***")), std::string::npos);
    EXPECT_NE(littleEndian.find(Common::WideToUtf16Le(L"***@**.**")), std::string::npos);
    EXPECT_EQ(bigEndian, littleEndian);
    EXPECT_EQ(stored(machine + "UTF-16.log"), "\xFF\xFE" + littleEndian);
    for (const char* name : {"UTF-16LE.log", "UTF-16BE.log", "UTF-16.log"}) {
        EXPECT_EQ(stored(std::string("Application Data/u/Brendix/") + name), ReadFile(fixtures / "utf16" / name)) << name;
    }
}

// Stored names: what a name becomes and that the escapes map back.
TEST(ArchiveNameTest, NamesThatCannotBeStoredAsTheyAreAreEscaped) {
    const struct {
        fs::path::string_type name;
        std::string stored;
    } cases[] = {
        {fs::path(u8"x.in\u00E9").native(), "x.in\xC3\xA9"},
        {fs::path("..\\..\\evil.txt").native(), "..%5C..%5Cevil.txt"},
        {fs::path("name\\").native(), "name%5C"},
        {fs::path("c:d*e?.txt").native(), "c%3Ad%2Ae%3F.txt"},
        {fs::path("100%.txt").native(), "100%25.txt"},
        {fs::path("trail. ").native(), "trail%2E%20"},
        {fs::path("..").native(), "%2E%2E"},
        {fs::path("con.log").native(), "co%6E.log"},
        {fs::path("console.log").native(), "console.log"},
    };
    for (const auto& entry : cases) {
        bool changed = false;
        EXPECT_EQ(StoredFileName(entry.name, changed), entry.stored);
        EXPECT_EQ(changed, entry.stored != Common::PathToUtf8(fs::path(entry.name)));
    }
    bool changed = false;
    const std::string cut = StoredFileName(fs::path(std::string(200, 'a') + std::string(30, '?') + ".log").native(), changed);
    // 200 + 30 * 3 + 4 bytes: the escapes are cut at a whole escape, the extension is kept.
    std::string expected(200, 'a');
    for (int i = 0; i < 17; ++i) expected += "%3F";
    EXPECT_EQ(cut, expected + ".log");
    EXPECT_TRUE(changed);

    StoredNames names;
    EXPECT_EQ(names.Claim("d/a.txt"), "d/a.txt");
    EXPECT_EQ(names.Claim("d/a.txt"), "d/a~2.txt");
    EXPECT_EQ(names.Claim("d/a.txt"), "d/a~3.txt");
    EXPECT_EQ(names.Claim("d.x/.hidden"), "d.x/.hidden");
    EXPECT_EQ(names.Claim("d.x/.hidden"), "d.x/.hidden~2");
}

}  // namespace
