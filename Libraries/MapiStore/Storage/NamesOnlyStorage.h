// The storage behind a message that lies in no store: it keeps names of properties for as long as the
// message is open, and nothing else.
#pragma once
#include "Storage.h"

class CNamesOnlyStorage final : public IObjectStorage {
public:
    bool IsReadOnly() const override { return false; }
    void BeginWrite(StoreCounters&) override { m_inWrite = true; }
    void Commit(const StoreCounters&) override { m_inWrite = false; }
    void Rollback() noexcept override { m_inWrite = false; }
    bool InWrite() const override { return m_inWrite; }
    void SetSavepoint() override {}
    void ReleaseSavepoint() override {}
    void RollbackToSavepoint() noexcept override {}
    std::uint64_t OutsideChanges() override { return 0; }

    std::optional<std::string> ReadFact(std::string_view) override { return std::nullopt; }
    void WriteFact(std::string_view, std::string_view) override {}
    void RemoveFact(std::string_view) override {}
    void ScanFacts(std::string_view,
                   const std::function<void(std::string_view, std::string_view)>&) override {}

    void ScanNames(const std::function<void(PropId, const PropertyName&)>& each) override {
        for (const auto& [id, name] : m_names)
            each(id, name);
    }
    void AddName(PropId id, const PropertyName& name) override { m_names.emplace_back(id, name); }

    bool ReadFolder(ObjectId, FolderHead&, std::string&) override { return false; }
    void WriteFolder(const FolderHead&, std::string_view) override {}
    void DeleteFolder(ObjectId) override {}
    void ScanFolders(ObjectId, const std::function<void(const FolderHead&, std::string_view)>&) override {}
    std::uint64_t CountFolders(ObjectId) override { return 0; }
    ObjectId FindFolder(ObjectId, std::string_view) override { return 0; }

    bool ReadMessage(ObjectId, MessageHead&, std::string&) override { return false; }
    bool ReadMessageHead(ObjectId, MessageHead&) override { return false; }
    void InsertMessage(const MessageHead&, std::string_view) override {}
    bool UpdateMessage(const MessageHead&, std::string_view, std::optional<std::uint64_t>) override {
        return false;
    }
    bool UpdateMessageState(ObjectId, std::uint32_t, std::uint32_t) override { return false; }
    void MoveMessage(ObjectId, const MessageHead&) override {}
    bool DeleteMessage(ObjectId) override { return false; }
    void DeleteMessages(ObjectId, bool) override {}
    void ScanMessages(ObjectId, bool,
                      const std::function<bool(const MessageHead&, std::string_view)>&) override {}
    void ScanMessageBlocks(ObjectId, bool,
                           const std::function<bool(const MessageHead&, std::string_view)>&) override {}
    void ScanMessageHeads(ObjectId, bool, const std::function<bool(const MessageHead&)>&) override {}
    std::uint64_t CountMessages(ObjectId, bool) override { return 0; }
    std::uint64_t CountUnread(ObjectId) override { return 0; }

    bool ReadLarge(ObjectId, std::string&) override { return false; }
    void WriteLarge(ObjectId, std::string_view) override {}
    bool ReadRecipients(ObjectId, std::string&) override { return false; }
    void WriteRecipients(ObjectId, std::string_view) override {}

    void ScanParts(ObjectId, const std::function<void(const PartHead&, std::string_view)>&) override {}
    bool ReadPart(ObjectId, PartHead&, std::string&) override { return false; }
    void WritePart(const PartHead&, std::string_view) override {}
    void DeletePart(ObjectId) override {}

private:
    bool m_inWrite = false;
    std::vector<std::pair<PropId, PropertyName>> m_names;
};
