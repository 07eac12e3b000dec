// The product data item: its two folder entries, the online-backup details, links in product folders,
// and a report run over product folders read back from the archive.
#include "products/imager/system_report/report_product_data.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>

#include "core/common/strings.h"
#include "products/imager/system_report/certificate_text.h"
#include "products/imager/system_report/filters/text_data_filter.h"
#include "products/imager/system_report/link_check.h"
#include "products/imager/system_report/online_backup_details.h"
#include "products/imager/system_report/report_manager.h"
#include "tests/products/imager/system_report/text_filter_oracle.h"
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

struct CommandResult {
    int status = -1;
    std::string output;
};

CommandResult RunCommand(const std::string& command) {
    CommandResult result;
    std::FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return result;
    char buffer[4096];
    while (std::size_t count = std::fread(buffer, 1, sizeof buffer, pipe)) result.output.append(buffer, count);
    result.status = pclose(pipe);
    return result;
}

std::string Quote(const fs::path& path) { return "'" + Common::PathToUtf8(path) + "'"; }

bool HaveOpenssl() { return RunCommand("openssl version").status == 0; }

// A self-signed certificate made by the openssl command, in PEM, and its DER twin.
void MakeCertificate(const fs::path& pem, const fs::path& der, const fs::path& key) {
    CommandResult made = RunCommand("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "
                             "'/CN=Backup Test/O=Brendix Cloud/emailAddress=ops@example.com' -keyout " + Quote(key) +
                             " -out " + Quote(pem));
    ASSERT_EQ(made.status, 0) << made.output;
    CommandResult converted = RunCommand("openssl x509 -in " + Quote(pem) + " -outform DER -out " + Quote(der));
    ASSERT_EQ(converted.status, 0) << converted.output;
}

std::wstring WideSeparator() { return std::wstring(1, fs::path::preferred_separator); }

TEST(ReportProductDataTest, AddsTheMachineWideFolderFilteredAndThePerUserFolderAsItIs) {
    TempFolder temp;
    auto folders = std::make_shared<FakeFolders>();
    folders->common = temp.path() / "common";
    folders->user = temp.path() / "user";
    folders->userName = L"jdoe";
    ReportContext context;
    context.folders = folders;
    context.textFilter = std::make_shared<TextDataFilter>();
    context.wideTextFilter = std::make_shared<TextDataFilterWString>();
    FileEntries entries;
    ASSERT_TRUE(ReportProductData(context).Create(temp.path(), entries).Succeeded());

    const std::wstring s = WideSeparator();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].source, temp.path() / "common" / "Brendix" / "");
    EXPECT_EQ(entries[0].archiveName, L"Application Data" + s + L"All Users" + s + L"Brendix" + s);
    EXPECT_EQ(entries[0].title, L"Common Application Data");
    EXPECT_EQ(entries[0].filter, context.textFilter);
    EXPECT_EQ(entries[1].source, temp.path() / "user" / "Brendix" / "");
    EXPECT_EQ(entries[1].archiveName, L"Application Data" + s + L"jdoe" + s + L"Brendix" + s);
    EXPECT_EQ(entries[1].title, L"User's Application Data");
    EXPECT_EQ(entries[1].filter, nullptr);
    for (const FileEntry& entry : entries) EXPECT_TRUE(entry.folder && entry.recursive);

    // Without a user name the per-user folder goes under "User"; a folder that cannot be located adds nothing.
    folders->userName.reset();
    folders->common.reset();
    entries.clear();
    ASSERT_TRUE(ReportProductData(context).Create(temp.path(), entries).Succeeded());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].archiveName, L"Application Data" + s + L"User" + s + L"Brendix" + s);
    folders->user.reset();
    entries.clear();
    EXPECT_TRUE(ReportProductData(context).Create(temp.path(), entries).Succeeded());
    EXPECT_TRUE(entries.empty());
}

TEST(CertificateTextTest, PrintsPemAndDerAndNamesWhatCannotBePrinted) {
    if (!HaveOpenssl()) GTEST_SKIP() << "the openssl command makes the certificates; it is not on this system";
    TempFolder temp;
    MakeCertificate(temp.path() / "a.crt", temp.path() / "a.der", temp.path() / "a.key");
    std::string pem = ReadFile(temp.path() / "a.crt");
    std::string der = ReadFile(temp.path() / "a.der");
    auto bytes = [](const std::string& text) {
        return std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    };
    std::string fromPem, fromDer;
    ASSERT_TRUE(PrintCertificate(bytes(pem), fromPem).Succeeded());
    ASSERT_TRUE(PrintCertificate(bytes(der), fromDer).Succeeded());
    EXPECT_EQ(fromPem, fromDer);

    // Cross-checked against the openssl command's own view of the certificate.
    CommandResult subject = RunCommand("openssl x509 -noout -subject -nameopt oneline,-esc_msb,utf8 -in " +
                                       Quote(temp.path() / "a.crt"));
    ASSERT_EQ(subject.status, 0);
    std::string value = subject.output.substr(subject.output.find('=') + 1);
    value = value.substr(value.find_first_not_of(' '));
    EXPECT_NE(fromPem.find("Subject: " + value.substr(0, value.find('\n')) + "\r\n"), std::string::npos) << fromPem;
    EXPECT_EQ(fromPem.find('\n'), fromPem.find("\r\n") + 1);

    std::string text;
    EXPECT_EQ(Common::WideToUtf8(PrintCertificate(bytes("not a certificate"), text).Message()),
              "Failed to retrieve certificate contents");
    EXPECT_EQ(Common::WideToUtf8(PrintCertificate(bytes(pem.substr(0, pem.size() / 2)), text).Message()),
              "Failed to retrieve certificate contents");
    EXPECT_TRUE(PrintCertificate({}, text).Failed());
}

TEST(OnlineBackupDetailsTest, DescribesEachCertificateOfEachOnlineBackupFolder) {
    if (!HaveOpenssl()) GTEST_SKIP() << "the openssl command makes the certificates; it is not on this system";
    TempFolder temp;
    const fs::path maker = temp.path() / "Brendix";
    EXPECT_EQ(Common::WideToUtf8(WriteOnlineBackupDetails(maker).Message()), "No OnlineBackup folder is available");
    fs::create_directories(maker / "Plain");
    EXPECT_TRUE(WriteOnlineBackupDetails(maker).Failed());

    const fs::path first = maker / "Cobaltine Home" / "OnlineBackup";
    const fs::path second = maker / "Other" / "OnlineBackup";
    fs::create_directories(first);
    fs::create_directories(second);
    fs::create_directories(first / "folder.crt");
    MakeCertificate(first / "client.crt", first / "client.CRT.der", temp.path() / "client.key");
    fs::rename(first / "client.CRT.der", first / "binary.CRT");
    WriteFile(first / "broken.crt", "-----BEGIN CERTIFICATE-----\nnot base64\n-----END CERTIFICATE-----\n");
    WriteFile(first / "notes.txt", "not a certificate file");
    ASSERT_TRUE(WriteOnlineBackupDetails(maker).Succeeded());

    const std::string details = ReadFile(first / "online_backup.txt");
    EXPECT_EQ(details.rfind("Product version: 24.7.38530\r\n\r\n", 0), 0u) << details;
    const std::string size = std::to_string(fs::file_size(first / "client.crt"));
    EXPECT_NE(details.find("Filename: 'client.crt'\r\nSize: " + size + " bytes\r\nCreation time: "), std::string::npos);
    EXPECT_TRUE(std::regex_search(details, std::regex("Creation time: \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d UTC\r\n-----\r\n")));
    EXPECT_NE(details.find("Filename: 'binary.CRT'"), std::string::npos);
    EXPECT_NE(details.find("Filename: 'broken.crt'\r\n"), std::string::npos);
    EXPECT_NE(details.find("-----\r\nFailed to retrieve certificate contents\r\n"), std::string::npos);
    EXPECT_NE(details.find("Subject: CN = Backup Test"), std::string::npos);
    EXPECT_EQ(details.find("notes.txt"), std::string::npos);
    EXPECT_EQ(details.find("folder.crt"), std::string::npos);
    // The other folder has no certificates: only the version line.
    EXPECT_EQ(ReadFile(second / "online_backup.txt"), "Product version: 24.7.38530\r\n\r\n");
}

TEST(LinkCheckTest, SymbolicLinksAreLinksWhereverTheyPoint) {
    TempFolder temp;
    fs::create_directories(temp.path() / "folder");
    WriteFile(temp.path() / "file", "x");
    std::error_code ec;
    fs::create_directory_symlink(temp.path() / "folder", temp.path() / "folder-link", ec);
    if (ec) GTEST_SKIP() << "this system does not let the test make symbolic links: " << ec.message();
    fs::create_symlink(temp.path() / "file", temp.path() / "file-link");
    fs::create_symlink(temp.path() / "missing", temp.path() / "dangling-link");
    EXPECT_TRUE(IsLink(temp.path() / "folder-link"));
    EXPECT_TRUE(IsLink(temp.path() / "file-link"));
    EXPECT_TRUE(IsLink(temp.path() / "dangling-link"));
    EXPECT_FALSE(IsLink(temp.path() / "folder"));
    EXPECT_FALSE(IsLink(temp.path() / "file"));
    EXPECT_FALSE(IsLink(temp.path() / "missing"));
}

// A report run over product folders, read back from the archive.
TEST(ProductDataReportTest, ArchiveHoldsRedactedMachineWideDataAndNothingBehindLinks) {
    if (!HaveOpenssl()) GTEST_SKIP() << "the openssl command makes the certificates; it is not on this system";
    TempFolder temp;
    const fs::path common = temp.path() / "common";
    const fs::path product = common / "Brendix" / "Cobaltine Home";
    const fs::path outside = temp.path() / "private";
    fs::create_directories(product / "Logs");
    fs::create_directories(product / "OnlineBackup");
    fs::create_directories(temp.path() / "user" / "Brendix");
    fs::create_directories(outside);

    const std::string log =
        "2024-05-01 10:00:00 [info] Logon UserName: jdoe\r\n"
        "2024-05-01 10:00:01 [info] Opened C:\\Users\\jdoe\\Documents\\tax.xlsx\r\n"
        "2024-05-01 10:00:02 [info] Mail to john.doe@example.com sent\r\n"
        "2024-05-01 10:00:03 [info] Password=Tr0ub4dor&3\r\n"
        "2024-05-01 10:00:04 [info] <LocationLogin>jdoe@cloud</LocationLogin>\r\n";
    WriteFile(product / "Logs" / "service.log", log);
    WriteFile(product / "settings.ini", "[Cloud]\r\nServer=backup.example.net\r\nOBPassword=hunter2\r\nOBSessionPassword=s3ss10n\r\n");
    MakeCertificate(product / "OnlineBackup" / "client.crt", temp.path() / "client.der", temp.path() / "client.key");
    WriteFile(outside / "diary.txt", "my secret diary");
    fs::create_directory_symlink(outside, product / "linked-folder");
    fs::create_symlink(outside / "diary.txt", product / "linked-file.txt");
    WriteFile(temp.path() / "user" / "Brendix" / "user.log", "Password=kept as it is\n");

    auto folders = std::make_shared<FakeFolders>();
    folders->common = common;
    folders->user = temp.path() / "user";
    folders->userName = L"jdoe";
    ReportContext context;
    context.folders = folders;
    context.textFilter = std::make_shared<TextDataFilter>();
    ReportManager manager;
    manager.Add(std::make_shared<ReportProductData>(context));
    ASSERT_TRUE(manager.Create(temp.path()).Succeeded());
    ASSERT_TRUE(manager.SaveAs(temp.path() / "report.zip").Succeeded());

    auto archive = TestSupport::ReadZip(temp.path() / "report.zip");
    ASSERT_TRUE(archive.has_value());
    const std::string machine = "Application Data/All Users/Brendix/Cobaltine Home/";
    ASSERT_TRUE(archive->count(machine + "Logs/service.log"));
    EXPECT_EQ(archive->at(machine + "Logs/service.log").data, FilterOracle::FilterText(log));
    EXPECT_EQ(archive->at(machine + "Logs/service.log").data.find("jdoe"), std::string::npos);

    ASSERT_TRUE(archive->count(machine + "OnlineBackup/online_backup.txt"));
    const std::string details = ReadFile(product / "OnlineBackup" / "online_backup.txt");
    EXPECT_EQ(archive->at(machine + "OnlineBackup/online_backup.txt").data, FilterOracle::FilterText(details));
    EXPECT_NE(details.find("Filename: 'client.crt'"), std::string::npos);
    // The certificate's body has no blanks: it is cut out of the copy.
    EXPECT_NE(archive->at(machine + "OnlineBackup/client.crt").data.find("BEGIN CERTIFICATE----- *** -----END CERTIFICATE"),
              std::string::npos);

    ASSERT_TRUE(archive->count(machine + "settings.ini"));
    EXPECT_NE(archive->at(machine + "settings.ini").data.find("Server=backup.example.net"), std::string::npos);
    ASSERT_TRUE(archive->count("Application Data/jdoe/Brendix/user.log"));
    EXPECT_EQ(archive->at("Application Data/jdoe/Brendix/user.log").data, "Password=kept as it is\n");
    for (const auto& [name, entry] : *archive) {
        EXPECT_EQ(entry.data.find("hunter2"), std::string::npos) << name;
        EXPECT_EQ(entry.data.find("s3ss10n"), std::string::npos) << name;
        EXPECT_EQ(entry.data.find("secret diary"), std::string::npos) << name;
        EXPECT_EQ(name.find("linked"), std::string::npos) << name;
    }
}

}  // namespace
