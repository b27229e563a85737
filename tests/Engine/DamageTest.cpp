// Runs over sync files that somebody else has spoiled: cut anywhere, or with a length that lies.
#include "FaultsTrial.h"

#include <Platform/Machine.h>

namespace {
class DamageTest : public FaultsTrial {
protected:
    TestRef<IMessage> Hidden(const std::string& side) {
        const TestRows rows = ContentsOf(Source().Folder(), {PR_ENTRYID, PR_SUBJECT_A}, MAPI_ASSOCIATED);
        for (ULONG row = 0; row < rows.Count(); ++row)
            if (rows.Text(row, 1) == side + "." + ComputerName())
                return OpenTestMessage(Source().Store(), rows.Bytes(row, 0));
        ADD_FAILURE() << "no memory of " << side;
        return {};
    }
    std::string Memory(const std::string& side) {
        TestRef<IAttach> attachment;
        EXPECT_EQ(Hidden(side)->OpenAttach(0, nullptr, 0, attachment.Out()), S_OK);
        return StreamOf(attachment.Get(), PR_ATTACH_DATA_BIN);
    }
    void Spoil(const std::string& side, const std::string& bytes) {
        const TestRef<IMessage> message = Hidden(side);
        TestRef<IAttach> attachment;
        ASSERT_EQ(message->OpenAttach(0, nullptr, MAPI_MODIFY, attachment.Out()), S_OK);
        ASSERT_EQ(SetStream(attachment.Get(), PR_ATTACH_DATA_BIN, bytes), S_OK);
        ASSERT_EQ(attachment->SaveChanges(0), S_OK);
        ASSERT_EQ(message->SaveChanges(FORCE_SAVE), S_OK);
    }

    // A pair of three items of which the source has changed one since.
    void MakePair() {
        Given(Both("A B C"), Synced());
        When(Source().Changes("B", "newer"));
    }
    // What is not remembered is compared with the other side: nothing goes, nothing comes twice, and the
    // newer text is nowhere replaced by the older.
    void RunOver(const std::string& what) {
        SCOPED_TRACE(what);
        Run();
        Still(Both("A B C"), Source().Reads("B", "newer"));
        expectMessages = false;
        Run();
        ExpectNothingMoves();
        expectMessages = true;
        Still(Both("A B C"), Source().Reads("B", "newer"), Source().Discards(""));
    }
    void SpoilEach(const std::string& side, const std::vector<std::string>& spoiled) {
        LeaveStores();
        Disk().Keep();
        EnterStores();
        for (size_t i = 0; i < spoiled.size() && !HasFailure(); ++i) {
            Spoil(side, spoiled[i]);
            RunOver(side + " spoiled in way " + std::to_string(i));
            StartOver();
        }
    }
};

std::uint32_t NumberAt(const std::string& bytes, size_t at) {
    std::uint32_t number = 0;
    for (size_t i = 4; i-- > 0;)
        number = number << 8 | static_cast<unsigned char>(bytes.at(at + i));
    return number;
}

std::string WithNumber(std::string bytes, size_t at, std::uint32_t number) {
    for (size_t i = 0; i < 4; ++i)
        bytes.at(at + i) = static_cast<char>(number >> 8 * i);
    return bytes;
}

// Where the count and the lengths stand in the bytes of a sync file.
std::vector<size_t> LengthsIn(const std::string& bytes) {
    std::vector<size_t> places = {0};
    const auto text = [&](size_t at) {
        places.push_back(at);
        return at + 4 + NumberAt(bytes, at) + 1;
    };
    size_t at = 4;
    for (std::uint32_t entry = NumberAt(bytes, 0); entry > 0; --entry)
        at = text(text(text(at) + 8));
    EXPECT_EQ(at, bytes.size());
    return places;
}
}  // namespace

INSTANTIATE_TEST_SUITE_P(Damage, DamageTest, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(DamageTest, MemoryCutAnywhere) {
    MakePair();
    for (const char* side : {"SourceID", "TargetID"}) {
        const std::string whole = Memory(side);
        std::vector<std::string> cuts;
        for (size_t length = 0; length < whole.size(); length += Stride())
            cuts.push_back(whole.substr(0, length));
        SpoilEach(side, cuts);
    }
}

TEST_P(DamageTest, MemoryWithLyingLengths) {
    MakePair();
    for (const char* side : {"SourceID", "TargetID"}) {
        const std::string whole = Memory(side);
        std::vector<std::string> lies;
        for (const size_t at : LengthsIn(whole))
            for (const std::uint32_t lie : {0u, NumberAt(whole, at) - 1, NumberAt(whole, at) + 1, 0x7FFFFFFFu,
                                            0x80000000u, 0xFFFFFFFFu})
                lies.push_back(WithNumber(whole, at, lie));
        SpoilEach(side, lies);
    }
}
