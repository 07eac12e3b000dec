// The boot-chain check.
#include "core/boot_check/boot_check.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>

#include "core/boot_check/bcd_elements.h"
#include "core/boot_check/boot_code.h"
#include "core/boot_check/hive_header.h"
#include "core/common/log.h"
#include "core/disk/bytes.h"
#include "core/disk/disk_errors.h"

namespace BootCheck {
namespace {

// Where a partition keeps its BCD stores: the firmware-boot layout, the BIOS-boot layout, and the
// recovery environment's own store.
constexpr std::array<std::string_view, 3> kStorePaths{"EFI/Microsoft/Boot/BCD", "Boot/BCD",
                                                      "EFI/Microsoft/Recovery/BCD"};
// A BCD store is some tens of KiB; a file far larger is not one.
constexpr std::uint64_t kMaxStoreBytes = 64u << 20;

enum class Verdict { Ok, Problem, Unknown };

enum class FileLookup { Found, Missing, Unreadable };

// Reads at most `limit` bytes of the file at `path`, telling a missing file from one that cannot be read.
FileLookup ReadFileAt(Disk::VolumeDirectory& root, std::string_view path, std::uint64_t limit, std::string& bytes,
                      std::uint64_t& size) {
    Common::Error error = Disk::ReadVolumeFile(root, path, limit, bytes, size);
    if (error.Succeeded()) return FileLookup::Found;
    return error.Code() == Disk::Codes::kNotFound ? FileLookup::Missing : FileLookup::Unreadable;
}

struct Section {
    std::string title;
    std::vector<std::pair<Verdict, std::string>> lines;
    void Add(Verdict verdict, std::string text) { lines.emplace_back(verdict, std::move(text)); }
};

// Upper-case hexadecimal, at least `digits` long.
std::string Hex(std::uint64_t value, int digits) {
    std::string text;
    for (; value != 0 || digits > 0; value >>= 4, --digits) text.insert(text.begin(), "0123456789ABCDEF"[value & 0xF]);
    return text;
}

std::string Dec(std::uint64_t value) { return std::to_string(value); }

std::string Backslashed(std::string_view path) {
    std::string text = "\\" + std::string(path);
    std::replace(text.begin(), text.end(), '/', '\\');
    return text;
}

struct Place {
    const MachineDisk* disk = nullptr;
    const Partition* partition = nullptr;
    std::string Name() const { return "disk " + Dec(disk->number) + " partition " + Dec(partition->number); }
};

// One decoded BCD object.
struct BcdObject {
    std::string guid;
    std::optional<std::uint32_t> type;
    std::map<std::uint32_t, Hive::HiveValue> elements;
};

struct Store {
    Place place;
    std::string path;
    std::string unreadable;            // why it could not be opened as a hive
    std::map<std::string, BcdObject> objects;
    std::vector<std::string> malformed;  // keys of the store that could not be decoded
    std::string Name() const { return place.Name() + " " + Backslashed(path); }
};

std::string DiskName(const MachineDisk& disk) { return "disk " + Dec(disk.number); }

std::optional<std::uint32_t> ParseHex32(std::string_view text) {
    if (text.size() != 8) return std::nullopt;
    std::uint32_t value = 0;
    for (char c : text) {
        int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (digit < 0) return std::nullopt;
        value = value << 4 | static_cast<std::uint32_t>(digit);
    }
    return value;
}

// Registry key names compare without regard to case.
std::unique_ptr<Hive::HiveKey> SubKey(Hive::HiveKey& key, std::string_view name) {
    std::vector<std::unique_ptr<Hive::HiveKey>> keys;
    if (key.SubKeys(keys).Failed()) return nullptr;
    auto same = [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    };
    for (auto& sub : keys) {
        std::string subName = sub->Name();
        if (std::equal(subName.begin(), subName.end(), name.begin(), name.end(), same)) return std::move(sub);
    }
    return nullptr;
}

void ReadObjects(Hive::HiveStore& hive, Store& store) {
    std::unique_ptr<Hive::HiveKey> root = hive.Root();
    std::unique_ptr<Hive::HiveKey> objects = root ? SubKey(*root, "Objects") : nullptr;
    if (!objects) {
        store.unreadable = "the store has no Objects key";
        return;
    }
    std::vector<std::unique_ptr<Hive::HiveKey>> keys;
    if (Common::Error error = objects->SubKeys(keys); error.Failed()) {
        store.unreadable = "its objects cannot be listed";
        return;
    }
    for (auto& key : keys) {
        std::optional<std::string> guid = ParseGuidText(key->Name());
        if (!guid) {
            store.malformed.push_back("object key \"" + key->Name() + "\" is not a GUID");
            continue;
        }
        BcdObject object;
        object.guid = *guid;
        std::vector<Hive::HiveValue> values;
        if (auto description = SubKey(*key, "Description"); description && description->Values(values).Succeeded())
            for (const Hive::HiveValue& value : values)
                if (value.name == "Type" && value.type == Hive::kDword && value.data.size() == 4)
                    object.type = Disk::Le32(value.data, 0);
        if (auto elements = SubKey(*key, "Elements")) {
            std::vector<std::unique_ptr<Hive::HiveKey>> elementKeys;
            elements->SubKeys(elementKeys);
            for (auto& elementKey : elementKeys) {
                std::optional<std::uint32_t> type = ParseHex32(elementKey->Name());
                values.clear();
                if (!type || elementKey->Values(values).Failed()) {
                    store.malformed.push_back(ObjectLabel(object.guid) + " element key \"" + elementKey->Name() +
                                              "\" is not an element type");
                    continue;
                }
                for (Hive::HiveValue& value : values)
                    if (value.name == "Element") object.elements[*type] = std::move(value);
            }
        }
        store.objects[object.guid] = std::move(object);
    }
}

class Checker {
public:
    Checker(Machine& machine, const HiveOpener& openHive) : machine_(machine), openHive_(openHive) {}

    std::string Run() {
        LoadStores();
        CheckFirmwareEntries();
        // Section 2 was filled while the stores were loaded.
        CheckObjects();
        CheckFirmwareToBcd();
        CheckBootCode();
        return Format();
    }

private:
    Section& Firmware() { return sections_[0]; }
    Section& Stores() { return sections_[1]; }
    Section& Objects() { return sections_[2]; }
    Section& FirmwareToBcd() { return sections_[3]; }
    Section& BootCode() { return sections_[4]; }

    // --- partitions ---------------------------------------------------------------------------------

    std::optional<Place> FindByGuid(const std::string& guid) const {
        for (const MachineDisk& disk : machine_.disks)
            for (const Partition& partition : disk.partitions)
                if (!partition.guid.empty() && partition.guid == guid) return Place{&disk, &partition};
        return std::nullopt;
    }

    const MachineDisk* FindBySignature(std::uint32_t signature) const {
        for (const MachineDisk& disk : machine_.disks)
            if (disk.mbr && disk.signature == signature) return &disk;
        return nullptr;
    }

    // --- BCD stores (section 2) ---------------------------------------------------------------------

    void LoadStores() {
        for (MachineDisk& disk : machine_.disks)
            for (Partition& partition : disk.partitions) {
                if (!partition.volume) {
                    if (!partition.unmounted.empty())
                        Stores().Add(Verdict::Unknown, Place{&disk, &partition}.Name() +
                                                           ": not searched for BCD stores, its file system cannot be "
                                                           "read (" + partition.unmounted + ")");
                    continue;
                }
                std::unique_ptr<Disk::VolumeDirectory> root = partition.volume->Root();
                if (!root) continue;
                for (std::string_view path : kStorePaths) LoadStore(Place{&disk, &partition}, *root, path);
            }
        if (stores_.empty() && Stores().lines.empty()) {
            if (!machine_.disksUnavailable.empty())
                Stores().Add(Verdict::Unknown, "no disk could be listed: " + machine_.disksUnavailable);
            else
                Stores().Add(Verdict::Ok, "no partition holds a BCD store");
        }
    }

    void LoadStore(const Place& place, Disk::VolumeDirectory& root, std::string_view path) {
        std::string bytes;
        std::uint64_t size = 0;
        FileLookup found = ReadFileAt(root, path, kMaxStoreBytes, bytes, size);
        if (found == FileLookup::Missing) return;
        Store store;
        store.place = place;
        store.path = std::string(path);
        std::string name = store.Name();
        if (found == FileLookup::Unreadable || bytes.size() != size) {
            Stores().Add(Verdict::Unknown, name + ": the file cannot be read whole");
            store.unreadable = "the file cannot be read whole";
            stores_.push_back(std::move(store));
            return;
        }
        CheckHeader(name, bytes);
        std::string logBytes;
        std::uint64_t logSize = 0;
        if (ReadFileAt(root, std::string(path) + ".LOG", 0, logBytes, logSize) == FileLookup::Found)
            Stores().Add(Verdict::Ok, name + ": a BCD.LOG file of " + Dec(logSize) +
                                          " bytes lies beside it (changes not yet written into the store)");
        std::unique_ptr<Hive::HiveStore> hive;
        if (Common::Error error = openHive_(bytes, hive); error.Failed() || !hive) {
            Common::Log::WriteError(Common::Log::kWarning, "Boot check: " + name + " cannot be opened as a hive: ",
                                    error);
            store.unreadable = "it cannot be opened as a registry hive";
        } else {
            ReadObjects(*hive, store);
        }
        stores_.push_back(std::move(store));
    }

    void CheckHeader(const std::string& name, const std::string& bytes) {
        HiveHeader header;
        std::span<const std::uint8_t> span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        if (!ReadHiveHeader(span, header) || !header.signature) {
            Stores().Add(Verdict::Problem, name + ": not a registry hive (no \"regf\" base block)");
            return;
        }
        if (!header.SequencesEqual())
            Stores().Add(Verdict::Problem, name + ": the header's sequence numbers differ (" +
                                               Dec(header.primarySequence) + ", " + Dec(header.secondarySequence) +
                                               "): a write to the store did not finish");
        if (!header.ChecksumRight())
            Stores().Add(Verdict::Problem, name + ": the header checksum is 0x" + Hex(header.storedChecksum, 8) +
                                               ", its bytes give 0x" + Hex(header.computedChecksum, 8));
        if (header.SequencesEqual() && header.ChecksumRight())
            Stores().Add(Verdict::Ok, name + ": header sequence numbers equal (" + Dec(header.primarySequence) +
                                          "), checksum right");
    }

    // --- firmware entries (section 1) ---------------------------------------------------------------

    // The partition a hard-drive node names, with a PROBLEM line when there is none.
    std::optional<Place> FindNode(const std::string& label, const HardDriveNode& node, Section& section) {
        if (node.gpt) {
            std::optional<Place> place = FindByGuid(node.partitionGuid);
            if (!place) section.Add(Verdict::Problem, label + ": no partition has GUID " + node.partitionGuid);
            return place;
        }
        const MachineDisk* disk = FindBySignature(node.diskSignature);
        if (!disk) {
            section.Add(Verdict::Problem, label + ": no disk has signature " + Hex(node.diskSignature, 8));
            return std::nullopt;
        }
        for (const Partition& partition : disk->partitions)
            if (partition.number == node.partitionNumber) return Place{disk, &partition};
        section.Add(Verdict::Problem, label + ": " + DiskName(*disk) + " (signature " + Hex(node.diskSignature, 8) +
                                          ") has no partition " + Dec(node.partitionNumber));
        return std::nullopt;
    }

    void CheckFirmwareEntries() {
        const BootCheck::Firmware& firmware = machine_.firmware;
        if (!firmware.unavailable.empty()) {
            Firmware().Add(Verdict::Unknown, "the firmware's boot variables cannot be read: " + firmware.unavailable);
            return;
        }
        if (!firmware.bootOrder) {
            Firmware().Add(Verdict::Unknown, "BootOrder cannot be read: " + firmware.bootOrderUnreadable);
        } else {
            std::set<std::uint16_t> present(firmware.variables.begin(), firmware.variables.end());
            bool whole = true;
            for (std::uint16_t number : *firmware.bootOrder)
                if (!present.count(number)) {
                    whole = false;
                    Firmware().Add(Verdict::Problem, "BootOrder lists " + Hex(number, 4) + ", but Boot" +
                                                         Hex(number, 4) + " does not exist");
                }
            if (whole) Firmware().Add(Verdict::Ok, "every number in BootOrder has its Boot#### variable");
        }
        for (const FirmwareEntry& entry : firmware.entries) CheckFirmwareEntry(entry);
    }

    static std::string EntryLabel(const FirmwareEntry& entry) {
        return "Boot" + Hex(entry.number, 4) + " \"" + entry.description + "\"";
    }

    void CheckFirmwareEntry(const FirmwareEntry& entry) {
        std::string label = EntryLabel(entry);
        if (!entry.unreadable.empty()) {
            Firmware().Add(Verdict::Unknown, "Boot" + Hex(entry.number, 4) + ": " + entry.unreadable);
            return;
        }
        if (!entry.hardDrive) {
            Firmware().Add(Verdict::Ok, label + ": no hard-drive node (not a disk partition), nothing to match");
            return;
        }
        const HardDriveNode& node = *entry.hardDrive;
        std::optional<Place> place = FindNode(label, node, Firmware());
        if (!place) return;
        const Partition& partition = *place->partition;
        if (partition.start != node.start || partition.size != node.size) {
            Firmware().Add(Verdict::Problem, label + ": " + place->Name() + " starts at sector " +
                                                 Dec(partition.start) + " and holds " + Dec(partition.size) +
                                                 " sectors; the entry says " + Dec(node.start) + " and " +
                                                 Dec(node.size));
        } else {
            Firmware().Add(Verdict::Ok, label + ": " + place->Name() + ", start " + Dec(node.start) + " and size " +
                                            Dec(node.size) + " as the entry says");
        }
        if (entry.filePath.empty()) return;
        if (!partition.volume) {
            Firmware().Add(Verdict::Unknown, label + ": " + entry.filePath + " not looked for: " + place->Name() +
                                                 (partition.unmounted.empty() ? " has no file system this tool reads"
                                                                              : "'s file system cannot be read (" +
                                                                                    partition.unmounted + ")"));
            return;
        }
        std::string bytes;
        std::uint64_t size = 0;
        std::unique_ptr<Disk::VolumeDirectory> root = partition.volume->Root();
        FileLookup found = root ? ReadFileAt(*root, entry.filePath, 0, bytes, size) : FileLookup::Unreadable;
        if (found == FileLookup::Found)
            Firmware().Add(Verdict::Ok, label + ": " + entry.filePath + " exists on " + place->Name());
        else if (found == FileLookup::Missing)
            Firmware().Add(Verdict::Problem, label + ": " + entry.filePath + " is missing on " + place->Name());
        else
            Firmware().Add(Verdict::Unknown, label + ": " + entry.filePath + " cannot be looked up on " +
                                                 place->Name());
    }

    // --- BCD objects (section 3) --------------------------------------------------------------------

    void CheckObjects() {
        for (const Store& store : stores_) {
            std::string name = store.Name();
            if (!store.unreadable.empty()) {
                Objects().Add(Verdict::Unknown, name + ": objects not decoded: " + store.unreadable);
                continue;
            }
            for (const std::string& malformed : store.malformed) Objects().Add(Verdict::Unknown, name + ": " + malformed);
            for (const auto& [guid, object] : store.objects) CheckObject(store, object);
        }
        if (stores_.empty()) Objects().Add(Verdict::Ok, "no BCD store to decode");
    }

    void CheckObject(const Store& store, const BcdObject& object) {
        std::string label = store.Name() + " " + ObjectLabel(object.guid);
        std::optional<std::string> typeName = object.type ? ObjectTypeName(*object.type) : std::nullopt;
        if (!object.type) {
            Objects().Add(Verdict::Unknown, label + ": no type (Description\\Type is missing)");
        } else if (!typeName) {
            Objects().Add(Verdict::Unknown, label + ": type word 0x" + Hex(*object.type, 8) + " is out of range");
        } else {
            // A well-known name hides the GUID; give both.
            std::string text = label + (WellKnownObjectName(object.guid).empty() ? "" : " " + object.guid) + ": " +
                               *typeName;
            if (auto description = object.elements.find(Element::kDescription); description != object.elements.end())
                if (auto strings = Utf16Strings(description->second.data); strings && !strings->empty())
                    text += " \"" + strings->front() + "\"";
            Objects().Add(Verdict::Ok, text);
        }
        for (const auto& [type, value] : object.elements) CheckElement(store, object, label, type, value);
    }

    void CheckElement(const Store& store, const BcdObject& object, const std::string& label, std::uint32_t type,
                      const Hive::HiveValue& value) {
        std::string element = label + " " + Hex(type, 8);
        std::string_view name = ElementName(type);
        if (!name.empty()) element += " (" + std::string(name) + ")";
        std::uint32_t format = ElementFormatOf(type);
        if (format == 0 || format > ElementFormat::kIntegerList) {
            Objects().Add(Verdict::Unknown, element + ": element type word 0x" + Hex(type, 8) + " is out of range");
            return;
        }
        if (format == ElementFormat::kDevice) {
            CheckDevice(element, value);
            return;
        }
        if (object.guid == kBootManagerGuid &&
            (type == Element::kDefaultObject || type == Element::kDisplayOrder)) {
            CheckReferences(store, element, value, type == Element::kDisplayOrder);
            return;
        }
        if (name.empty()) Objects().Add(Verdict::Ok, element + ": a type not known to this check, not checked");
    }

    void CheckReferences(const Store& store, const std::string& element, const Hive::HiveValue& value, bool list) {
        std::optional<std::vector<std::string>> strings = Utf16Strings(value.data);
        if (!strings) {
            Objects().Add(Verdict::Unknown, element + ": " + (list ? "an object list" : "an object reference") + " of " +
                                                Dec(value.data.size()) + " bytes (odd)");
            return;
        }
        if (strings->empty()) {
            Objects().Add(Verdict::Ok, element + ": empty");
            return;
        }
        for (const std::string& text : *strings) {
            std::optional<std::string> guid = ParseGuidText(text);
            if (!guid)
                Objects().Add(Verdict::Unknown, element + ": \"" + text + "\" is not an object identifier");
            else if (store.objects.count(*guid))
                Objects().Add(Verdict::Ok, element + ": " + ObjectLabel(*guid) + " exists");
            else
                Objects().Add(Verdict::Problem, element + ": names " + ObjectLabel(*guid) +
                                                    ", which is not in the store");
        }
    }

    void CheckDevice(const std::string& element, const Hive::HiveValue& value) {
        std::string why;
        std::optional<Device> device = DecodeDevice(value.data, why);
        if (!device) {
            Objects().Add(Verdict::Unknown, element + ": " + why);
            return;
        }
        std::string prefix = element + ": " + (device->ramdisk ? "RAM disk image on " : "");
        if (device->kind != Device::Kind::Partition) {
            Objects().Add(Verdict::Ok, prefix + device->description + ", nothing to match");
            return;
        }
        const DevicePartition& partition = *device->partition;
        if (partition.gpt) {
            std::string what = "GPT partition " + partition.partitionGuid + " on disk " + partition.diskGuid;
            std::optional<Place> place = FindByGuid(partition.partitionGuid);
            if (!place)
                Objects().Add(Verdict::Problem, prefix + what + ": no partition has GUID " + partition.partitionGuid);
            else if (place->disk->guid != partition.diskGuid)
                Objects().Add(Verdict::Problem, prefix + what + ": that partition is " + place->Name() +
                                                    ", whose disk GUID is " + place->disk->guid);
            else
                Objects().Add(Verdict::Ok, prefix + what + ": " + place->Name());
            return;
        }
        std::string what = "MBR partition at byte " + Dec(partition.offsetBytes) + " on the disk with signature " +
                           Hex(partition.diskSignature, 8);
        const MachineDisk* disk = FindBySignature(partition.diskSignature);
        if (!disk) {
            Objects().Add(Verdict::Problem, prefix + what + ": no disk has signature " + Hex(partition.diskSignature, 8));
            return;
        }
        for (const Partition& candidate : disk->partitions)
            if (candidate.start * disk->sectorSize == partition.offsetBytes) {
                Objects().Add(Verdict::Ok, prefix + what + ": " + Place{disk, &candidate}.Name());
                return;
            }
        Objects().Add(Verdict::Problem, prefix + what + ": " + DiskName(*disk) + " has no partition starting there");
    }

    // --- firmware to BCD (section 4) ----------------------------------------------------------------

    void CheckFirmwareToBcd() {
        const BootCheck::Firmware& firmware = machine_.firmware;
        if (!firmware.unavailable.empty()) {
            FirmwareToBcd().Add(Verdict::Unknown, "the firmware's boot variables cannot be read: " + firmware.unavailable);
            return;
        }
        bool any = false;
        for (const FirmwareEntry& entry : firmware.entries) {
            if (!entry.bcdObject) continue;
            any = true;
            std::string label = EntryLabel(entry) + " BCDOBJECT=" + ObjectLabel(*entry.bcdObject);
            if (!entry.hardDrive) {
                FirmwareToBcd().Add(Verdict::Unknown, label + ": the entry names no partition");
                continue;
            }
            Section scratch;
            std::optional<Place> place = FindNode(label, *entry.hardDrive, scratch);
            if (!place) {
                FirmwareToBcd().Add(Verdict::Unknown, label + ": the entry's partition is on no disk (see above)");
                continue;
            }
            CheckEntryObject(label, *place, *entry.bcdObject);
        }
        if (!any) FirmwareToBcd().Add(Verdict::Ok, "no firmware entry names a BCD object");
    }

    void CheckEntryObject(const std::string& label, const Place& place, const std::string& guid) {
        bool storeSeen = false;
        for (const Store& store : stores_) {
            if (store.place.partition != place.partition) continue;
            storeSeen = true;
            if (!store.unreadable.empty()) continue;
            if (store.objects.count(guid)) {
                FirmwareToBcd().Add(Verdict::Ok, label + ": exists in " + store.Name());
                return;
            }
        }
        if (!place.partition->volume)
            FirmwareToBcd().Add(Verdict::Unknown, label + ": the file system of " + place.Name() + " cannot be read");
        else if (!storeSeen)
            FirmwareToBcd().Add(Verdict::Problem, label + ": " + place.Name() + " holds no BCD store");
        else if (std::any_of(stores_.begin(), stores_.end(), [&](const Store& store) {
                     return store.place.partition == place.partition && !store.unreadable.empty();
                 }))
            FirmwareToBcd().Add(Verdict::Unknown, label + ": a BCD store on " + place.Name() + " cannot be decoded");
        else
            FirmwareToBcd().Add(Verdict::Problem, label + ": no such object in the BCD stores of " + place.Name());
    }

    // --- boot code (section 5) ----------------------------------------------------------------------

    void CheckBootCode() {
        if (machine_.disks.empty()) {
            BootCode().Add(machine_.disksUnavailable.empty() ? Verdict::Ok : Verdict::Unknown,
                           machine_.disksUnavailable.empty() ? "no disks" : "no disk could be listed: " +
                                                                                machine_.disksUnavailable);
            return;
        }
        for (const MachineDisk& disk : machine_.disks) {
            std::string mbrCode;
            if (disk.sector0.empty()) {
                BootCode().Add(Verdict::Unknown, DiskName(disk) + " MBR: sector 0 cannot be read");
            } else {
                mbrCode = IdentifyBootCode(disk.sector0, SectorKind::Mbr);
                BootCode().Add(Verdict::Ok, DiskName(disk) + " MBR: " + mbrCode);
            }
            if (disk.mbr) CheckActive(disk, mbrCode);
            for (const Partition& partition : disk.partitions) CheckBootSector(disk, partition);
        }
    }

    void CheckActive(const MachineDisk& disk, const std::string& mbrCode) {
        std::vector<std::uint32_t> active;
        for (const Partition& partition : disk.partitions)
            if (partition.active) active.push_back(partition.number);
        if (active.size() > 1) {
            std::string numbers;
            for (std::uint32_t number : active) numbers += (numbers.empty() ? "" : ", ") + Dec(number);
            BootCode().Add(Verdict::Problem, DiskName(disk) + ": " + Dec(active.size()) +
                                                 " partitions are active (" + numbers +
                                                 "); the MBR code starts only one");
        } else if (active.size() == 1) {
            BootCode().Add(Verdict::Ok, DiskName(disk) + ": partition " + Dec(active.front()) +
                                            " is the one active partition");
        } else if (machine_.biosFirmware && disk.biosFirst &&
                   (mbrCode.rfind("Windows", 0) == 0 || mbrCode.rfind("syslinux MBR", 0) == 0)) {
            // These codes start the active partition; GRUB's does not look for one.
            BootCode().Add(Verdict::Problem, DiskName(disk) + ": no partition is active, and the BIOS starts this disk's " +
                                                 mbrCode + ", which starts the active one");
        } else {
            BootCode().Add(Verdict::Ok, DiskName(disk) + ": no active partition, none needed");
        }
    }

    void CheckBootSector(const MachineDisk& disk, const Partition& partition) {
        std::string name = Place{&disk, &partition}.Name();
        if (partition.bootSector.empty()) {
            BootCode().Add(Verdict::Unknown, name + " boot sector: it cannot be read");
            return;
        }
        BootCode().Add(Verdict::Ok, name + " boot sector: " + IdentifyBootCode(partition.bootSector, SectorKind::BootSector));
        // Only a BIOS start runs a boot sector's code, which finds the rest of itself by the hidden sectors;
        // firmware reads a GPT disk's file systems without them, and Linux tools leave them 0 there.
        std::optional<std::uint32_t> hidden = HiddenSectors(partition.bootSector);
        if (!hidden || !disk.mbr) return;
        if (partition.logical)
            BootCode().Add(Verdict::Ok, name + ": hidden sectors " + Dec(*hidden) +
                                            " (a logical partition counts them from its extended table), not compared");
        else if (*hidden != partition.start)
            BootCode().Add(Verdict::Problem, name + ": hidden sectors " + Dec(*hidden) + ", but the partition starts at " +
                                                 Dec(partition.start));
        else
            BootCode().Add(Verdict::Ok, name + ": hidden sectors equal the partition's start (" + Dec(*hidden) + ")");
    }

    // --- text ---------------------------------------------------------------------------------------

    std::string Format() const {
        std::size_t problems = 0;
        for (const Section& section : sections_)
            for (const auto& line : section.lines) problems += line.first == Verdict::Problem;
        std::string text = problems == 0 ? "Boot chain: no problem found\r\n"
                                         : "Boot chain: " + Dec(problems) + " problem(s) found\r\n";
        for (const Section& section : sections_) {
            text += "\r\n" + section.title + "\r\n";
            for (const auto& [verdict, line] : section.lines)
                text += std::string(verdict == Verdict::Ok ? "OK " : verdict == Verdict::Problem ? "PROBLEM " : "UNKNOWN ") +
                        line + "\r\n";
        }
        return text;
    }

    Machine& machine_;
    const HiveOpener& openHive_;
    std::vector<Store> stores_;
    std::array<Section, 5> sections_{{{"1. Firmware entries", {}},
                                      {"2. BCD stores", {}},
                                      {"3. BCD objects", {}},
                                      {"4. Firmware entries to BCD objects", {}},
                                      {"5. Boot code", {}}}};
};

}  // namespace

std::string BuildBootCheck(Machine& machine, const HiveOpener& openHive) { return Checker(machine, openHive).Run(); }

}  // namespace BootCheck
