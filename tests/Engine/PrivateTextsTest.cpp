// What a person writes is found whole somewhere, whatever a pair takes out of private appointments, whatever
// people write into the copies, and whichever call of a store fails in between. And what is private stays on
// its own side.
#include "FaultsTrial.h"

#include <MapiWrapper/ContactLinks.h>

#include <set>

namespace {
constexpr GUID kAppointments = {0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr ULONG kHtml = PROP_TAG(PT_STRING8, 0x1013);
constexpr ULONG kFewestCalls = 80;

ULONG StartTag(IMAPIProp* item) {
    return NamedTag(item, kAppointments, 0x820D, PT_SYSTIME);
}
ULONG PlaceTag(IMAPIProp* item) {
    return NamedTag(item, kAppointments, 0x8208, PT_STRING8);
}

class PrivateTexts : public FaultsTrial {
protected:
    void Try(ULONG options);

private:
    void FailCalls(bool onTheLeft, bool forGood);
    bool RunWithFault(StorySide& side, ULONG n, bool forGood);
    // Known on both sides by the time when it starts, which every copy bears.
    TestRef<IMessage> Find(StorySide& side, DWORD start) {
        const TestRows rows = ContentsOf(side.Folder(), {PR_ENTRYID, StartTag(side.Folder())});
        for (ULONG row = 0; row < rows.Count(); ++row)
            if (rows.Cell(row, 1).Value.ft.dwLowDateTime == start &&
                PROP_TYPE(rows.Cell(row, 1).ulPropTag) == PT_SYSTIME)
                return OpenTestMessage(side.Store(), rows.Bytes(row, 0));
        return {};
    }
    void Make(StorySide& side, DWORD start, LONG sensitivity, const std::string& name,
              const std::string& body) {
        const TestRef<IMessage> item = NewMessage(side.Folder(), name);
        SetText(item.Get(), PR_MESSAGE_CLASS_A, "IPM.Appointment");
        SetText(item.Get(), PR_SENDER_NAME_A, "Anna");
        SetLong(item.Get(), PR_SENSITIVITY, sensitivity);
        SetTime(item.Get(), StartTag(item.Get()), {start, 0x01D90000});
        SetText(item.Get(), PlaceTag(item.Get()), "place of " + name);
        if (!body.empty()) SetStream(item.Get(), PR_BODY_A, body);
        IMessagePtr(item.Get()).AddAttachmentData("x", 1, ("file of " + name).c_str());
        SetText(item.Get(), NamedTag(item.Get(), L"Keyword", PT_STRING8), "word of " + name);
        Wrote({name, body, "place of " + name, "file of " + name, "word of " + name},
              sensitivity == 2 ? &side : nullptr);
        ASSERT_EQ(item->SaveChanges(0), S_OK);
    }
    template <class Change>
    void Edit(StorySide& side, DWORD start, Change change) {
        const TestRef<IMessage> item = Find(side, start);
        if (!item) return;  // an item that does not travel under these options has no copy to be changed
        change(item.Get());
        ASSERT_EQ(item->SaveChanges(0), S_OK);
    }
    void Move(StorySide& side, DWORD start) {
        Edit(side, start, [&](IMessage* item) {
            SetTime(item, NamedTag(item, kAppointments, 0x820E, PT_SYSTIME), {start + 1, 0x01D90000});
        });
    }
    // Texts, and the side that they must not leave.
    void Wrote(const std::vector<std::string>& texts, StorySide* stayOn = nullptr) {
        for (const std::string& text : texts) {
            if (!text.empty()) m_written.insert(text);
            if (!text.empty() && stayOn) m_private[text] = stayOn->Name();
        }
    }

    void Prepare();
    void ChangeOnBothSides();
    std::set<std::string> TextsOn(StorySide& side);
    void ExpectAllThere(const std::string& trouble);

    std::set<std::string> m_written;
    std::map<std::string, std::string> m_private;
};

enum : DWORD {
    DOCTOR = 100,
    LAWYER = 110,
    BANK = 120,
    FRIENDS = 130,
    GYM = 140,
    TRIP = 150,
    PARTY = 160,
    NOTARY = 170,
    CHOIR = 180
};

void PrivateTexts::Prepare() {
    StorySide& mine = Left();
    Make(mine, DOCTOR, 2, "doctor", "knee");
    Make(mine, LAWYER, 2, "lawyer", std::string(150000, 'x') + "the end");  // takes more than one read
    Make(mine, BANK, 2, "bank", "");
    Edit(mine, BANK, [&](IMessage* item) { SetText(item, kHtml, "<p>money</p>"); });
    Wrote({"<p>money</p>"}, &mine);
    Make(mine, FRIENDS, 2, "friends", "who comes");
    Edit(mine, FRIENDS, [&](IMessage* item) {
        CContactLinks links(2);
        links.front().name = "Ann who is linked";
        links.back().name = "Bob who is linked";
        for (CContactLink& link : links)
            link.entryId.Assign("id", 2);
        IMessagePtr wrapper(item);
        WriteContactLinks(links, wrapper);
    });
    Wrote({"Ann who is linked", "Bob who is linked"}, &mine);
    Make(mine, GYM, 1, "gym", "weights");
    Make(mine, TRIP, 0, "trip", "to the sea");
    Make(Right(), PARTY, 0, "party", "with cake");
    Make(mine, NOTARY, 2, "notary", "the house");
    Make(mine, CHOIR, 1, "choir", "songs");
    Run();
    // What somebody writes into a copy that shows nothing goes no further, and stays there.
    Edit(Right(), NOTARY, [&](IMessage* item) {
        SetText(item, PR_SUBJECT_A, "somebody is busy");
        SetText(item, PlaceTag(item), "somewhere else");
        Wrote({"somebody is busy", "somewhere else"});
    });
    Run();
}

void PrivateTexts::ChangeOnBothSides() {
    for (const DWORD start : {DOCTOR, LAWYER, BANK, FRIENDS})
        Move(Right(), start);
    const auto write = [&](StorySide& side, DWORD start, ULONG tag, const std::string& text, bool isPrivate) {
        Edit(side, start, [&](IMessage* item) {
            SetText(item, tag, text);
            Wrote({text}, isPrivate ? &side : nullptr);
        });
    };
    write(Right(), GYM, PR_SUBJECT_A, "gym over there", false);
    write(Right(), CHOIR, PR_SUBJECT_A, "choir over there", false);
    write(Right(), CHOIR, PR_BODY_A, "x", false);
    write(Left(), NOTARY, PR_BODY_A, "the house and the garden", true);
    m_written.erase("the house");
    // Copies that show everything were read by whoever wrote over them.
    if (!setting.Has(SYNC_STRIP_PRIVATE))
        for (const char* text : {"gym", "choir", "songs"})
            m_written.erase(text);
    const auto hide = [&](IMessage* item) { SetLong(item, PR_SENSITIVITY, 2); };
    Edit(Left(), TRIP, hide);
    write(Left(), TRIP, PR_BODY_A, "to the mountains", true);
    Edit(Right(), PARTY, hide);
}

// Of all messages of a store, wherever they lie.
std::set<std::string> PrivateTexts::TextsOn(StorySide& side) {
    std::set<std::string> texts;
    std::vector<TestRef<IMAPIFolder>> folders = {OpenStoreFolder(side.Store(), PR_IPM_SUBTREE_ENTRYID)};
    while (!folders.empty()) {
        const TestRef<IMAPIFolder> folder = folders.back();
        folders.pop_back();
        const TestRows children = HierarchyOf(folder.Get(), {PR_ENTRYID});
        for (ULONG row = 0; row < children.Count(); ++row)
            folders.push_back(OpenTestFolder(side.Store(), children.Bytes(row, 0)));
        const TestRows rows = ContentsOf(folder.Get(), {PR_ENTRYID});
        for (ULONG row = 0; row < rows.Count(); ++row) {
            const TestRef<IMessage> item = OpenTestMessage(side.Store(), rows.Bytes(row, 0));
            texts.insert({TextOf(item.Get(), PR_SUBJECT_A), StreamOf(item.Get(), PR_BODY_A).c_str(),
                          TextOf(item.Get(), kHtml), TextOf(item.Get(), PlaceTag(item.Get())),
                          TextOf(item.Get(), NamedTag(item.Get(), L"Keyword", PT_STRING8))});
            TestRef<IMAPITable> attachments;
            EXPECT_EQ(item->GetAttachmentTable(0, attachments.Out()), S_OK);
            const TestRows files(attachments.Get(), {PR_ATTACH_FILENAME_A});
            for (ULONG file = 0; file < files.Count(); ++file)
                texts.insert(files.Text(file, 0));
            CContactLinks links;
            EXPECT_TRUE(ReadContactLinks(links, IMessagePtr(item.Get())));
            for (const CContactLink& link : links)
                texts.insert(link.name);
        }
    }
    return texts;
}

void PrivateTexts::ExpectAllThere(const std::string& trouble) {
    std::map<std::string, std::set<std::string>> found;
    for (StorySide* side : {&Left(), &Right()})
        found[side->Name()] = TextsOn(*side);
    const auto shown = [](const std::string& text) { return text.substr(0, 30); };
    for (const std::string& text : m_written) {
        EXPECT_TRUE(found["left"].count(text) + found["right"].count(text) > 0)
            << "\"" << shown(text) << "\" is gone after " << trouble;
    }
    for (const auto& [text, side] : m_private) {
        EXPECT_EQ(found[side == "left" ? "right" : "left"].count(text), 0u)
            << "\"" << shown(text) << "\" has left the " << side << " after " << trouble;
    }
}

// False once there is no n-th call.
bool PrivateTexts::RunWithFault(StorySide& side, ULONG n, bool forGood) {
    SCOPED_TRACE(n);
    Look();
    const auto faults = FaultsOf(side.Store());
    faults->SetFault(n, MAPI_E_NETWORK_ERROR, forGood);
    Run();
    const bool reached = faults->CallCount() >= n;
    faults->SetFault(0, S_OK, FALSE);
    ExpectTheTruthWasTold();
    return reached;
}

void PrivateTexts::FailCalls(bool onTheLeft, bool forGood) {
    const ULONG step = NumberOf("VELLUM_STRIDE", 4);
    ULONG n = 1 + (onTheLeft ? 2 : 0) + (forGood ? 1 : 0);
    for (bool reached = true; reached && !HasFailure(); n += step) {
        reached = RunWithFault(onTheLeft ? Left() : Right(), n, forGood);
        const std::string trouble = "failing call " + std::to_string(n) + " of the " +
                                    (onTheLeft ? "left" : "right") + (forGood ? " for good" : "");
        ExpectAllThere(trouble);
        SCOPED_TRACE(trouble + " and another run");
        Run();
        ExpectAllThere(trouble + " and another run");
        StartOver();
    }
    EXPECT_GT(n, kFewestCalls);
}

void PrivateTexts::Try(ULONG options) {
    setting.m_flags |= options;
    Prepare();
    ChangeOnBothSides();
    LeaveStores();
    Disk().Keep();
    EnterStores();
    for (const bool onTheLeft : {true, false})
        for (const bool forGood : {false, true})
            FailCalls(onTheLeft, forGood);
}
}  // namespace

INSTANTIATE_TEST_SUITE_P(Private, PrivateTexts, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(PrivateTexts, SurviveThePairThatStripsThem) {
    Try(SYNC_STRIP_PRIVATE);
}

TEST_P(PrivateTexts, SurviveThePairThatStripsAndRenews) {
    Try(SYNC_STRIP_PRIVATE | SYNC_ALWAYS_RENEW);
}

TEST_P(PrivateTexts, SurviveThePairThatSkipsThem) {
    Try(SYNC_SKIP_PRIVATE);
}

TEST_P(PrivateTexts, SurviveThePairThatDoesBoth) {
    Try(SYNC_SKIP_PRIVATE | SYNC_STRIP_PRIVATE);
}
