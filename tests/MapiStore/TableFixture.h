// A store of its own with messages put in directly, so that the tests of tables need nothing above the
// storage. Tables are opened as the folders open them.
#pragma once
#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Storage/WellKnown.h>
#include <MapiStore/Tables/Tables.h>
#include <MapiStore/Values/PropertyBag.h>
#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/UnknownImpl.h>
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/MapiHeaders.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

struct RowsDeleter {
    void operator()(SRowSet* rows) const { FreeProws(rows); }
};
using RowsPtr = std::unique_ptr<SRowSet, RowsDeleter>;

class CTagList {
public:
    CTagList(std::initializer_list<ULONG> tags) : m_words(1, static_cast<ULONG>(tags.size())) {
        m_words.insert(m_words.end(), tags);
    }
    operator SPropTagArray*() { return reinterpret_cast<SPropTagArray*>(m_words.data()); }

private:
    std::vector<ULONG> m_words;
};

class CSortList {
public:
    CSortList(std::initializer_list<SSortOrder> keys) : m_words(3 + 2 * keys.size()) {
        m_words[0] = static_cast<ULONG>(keys.size());
        std::size_t at = 3;
        for (const SSortOrder& key : keys) {
            m_words[at++] = key.ulPropTag;
            m_words[at++] = key.ulOrder;
        }
    }
    operator SSortOrderSet*() { return reinterpret_cast<SSortOrderSet*>(m_words.data()); }

private:
    std::vector<ULONG> m_words;
};

class TableFixture : public ::testing::Test {
protected:
    void SetUp() override {
        static int number = 0;
        m_path = JoinPath(DataDirectory(), "tables" + std::to_string(number++) + ".store");
        RemoveFile(m_path);
        CStoreCore::Create(m_path, "Tables");
        core = CStoreCore::Open(m_path);
    }

    ObjectId Add(CPropertyBag& bag, ObjectId folder = kInboxFolder, bool associated = false,
                 std::uint64_t modified = 0) {
        const CQuietCall call(*core);
        MessageHead head;
        core->Save([&] {
            head.id = MakeMessageId(folder, associated, core->NextSerial());
            head.created = core->NextTime();
            head.modified = modified ? modified : core->NextTime();
            head.change = core->NextChange();
            const auto blocks = bag.Build({});
            head.size = static_cast<std::uint32_t>(blocks.cb);
            head.hasLarge = !blocks.large.empty();
            core->Storage().InsertMessage(head, blocks.small);
            if (head.hasLarge) core->Storage().WriteLarge(head.id, blocks.large);
            Publish(fnevObjectCreated, head.id);
        });
        return head.id;
    }
    ObjectId AddSubject(const std::string& subject, ObjectId folder = kInboxFolder) {
        CPropertyBag bag;
        bag.SetText(PROP_ID(PR_SUBJECT), subject);
        bag.SetText(PROP_ID(PR_MESSAGE_CLASS), "IPM.Note");
        return Add(bag, folder);
    }
    void ChangeSubject(ObjectId id, const std::string& subject) {
        const CQuietCall call(*core);
        core->Save([&] {
            MessageHead head;
            std::string block;
            ASSERT_TRUE(core->Storage().ReadMessage(id, head, block));
            CPropertyBag bag;
            bag.Load(block);
            bag.SetText(PROP_ID(PR_SUBJECT), subject);
            head.change = core->NextChange();
            core->Storage().UpdateMessage(head, bag.Build({}).small, std::nullopt);
            Publish(fnevObjectModified, id);
        });
    }
    void Delete(ObjectId id) {
        const CQuietCall call(*core);
        core->Save([&] {
            core->Storage().DeleteMessage(id);
            Publish(fnevObjectDeleted, id);
        });
    }
    void Publish(ULONG kind, ObjectId id) {
        StoreEvent event;
        event.kind = kind;
        event.objectType = MAPI_MESSAGE;
        event.id = id;
        event.parent = FolderOf(id);
        core->Publish(event);
    }

    CRef<IMAPITable> Contents(ObjectId folder = kInboxFolder, ULONG flags = 0) {
        CRef<IMAPITable> table;
        const CQuietCall call(*core);
        OpenContentsTable(core, folder, flags, table.Out());
        return table;
    }

    // The subjects of the next `count` rows.
    static std::vector<std::string> Subjects(IMAPITable& table, LONG count = 0x7FFFFFFF, ULONG flags = 0) {
        CTagList tags{PR_SUBJECT_A};
        EXPECT_EQ(S_OK, table.SetColumns(tags, 0));
        SRowSet* rows = nullptr;
        EXPECT_EQ(S_OK, table.QueryRows(count, flags, &rows));
        RowsPtr owner(rows);
        std::vector<std::string> subjects;
        for (ULONG i = 0; rows && i < rows->cRows; ++i) {
            const SPropValue& cell = rows->aRow[i].lpProps[0];
            subjects.push_back(cell.ulPropTag == PR_SUBJECT_A ? cell.Value.lpszA : "(none)");
        }
        return subjects;
    }

    std::shared_ptr<CStoreCore> core;

private:
    std::string m_path;
};

// A RES_PROPERTY on text, with the value it points to.
struct TextRestriction {
    TextRestriction(ULONG tag, ULONG relop, const char* text) {
        value.ulPropTag = tag;
        value.Value.lpszA = const_cast<char*>(text);
        restriction.rt = RES_PROPERTY;
        restriction.res.resProperty = {relop, tag, &value};
    }
    TextRestriction(const TextRestriction&) = delete;
    SPropValue value{};
    SRestriction restriction{};
};
