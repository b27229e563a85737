// What makes two items different: anything that a person could have written.
#include <Tarn/Engine/SameContents.h>
#include <support/StoreFixture.h>

#include <functional>

namespace {
using Change = std::function<void(const TestRef<IMessage>&)>;

void Attach(const TestRef<IMessage>& message, const std::string& bytes) {
    ULONG number = 0;
    TestRef<IAttach> attachment;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, attachment.Out()), S_OK);
    SetLong(attachment.Get(), PR_ATTACH_METHOD, ATTACH_BY_VALUE);
    SetText(attachment.Get(), PR_ATTACH_FILENAME_A, "file");
    SetStream(attachment.Get(), PR_ATTACH_DATA_BIN, bytes);
    ASSERT_EQ(attachment->SaveChanges(0), S_OK);
}

void Enclose(const TestRef<IMessage>& message, const std::string& body) {
    ULONG number = 0;
    TestRef<IAttach> attachment;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, attachment.Out()), S_OK);
    SetLong(attachment.Get(), PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG);
    TestRef<IMessage> inner;
    ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                       reinterpret_cast<IUnknown**>(inner.Out())),
              S_OK);
    SetText(inner.Get(), PR_BODY_A, body);
    ASSERT_EQ(inner->SaveChanges(0), S_OK);
    ASSERT_EQ(attachment->SaveChanges(0), S_OK);
}

void Address(const TestRef<IMessage>& message, const std::string& name) {
    SPropValue values[2] = {};
    values[0].ulPropTag = PR_DISPLAY_NAME_A;
    values[0].Value.lpszA = const_cast<char*>(name.c_str());
    values[1].ulPropTag = PR_RECIPIENT_TYPE;
    values[1].Value.l = MAPI_TO;
    SizedADRLIST(1, list) = {1, {{0, 2, values}}};
    ASSERT_EQ(message->ModifyRecipients(MODRECIP_ADD, reinterpret_cast<LPADRLIST>(&list)), S_OK);
}

class SameContentsTest : public TwoStores {
protected:
    TestRef<IMessage> Original() {
        const auto message = NewMessage(left.Get(), "A", std::string(70000, 'x'));
        SetText(message.Get(), NamedTag(message.Get(), L"OnlyHere", PT_STRING8), "unused");
        SetText(message.Get(), NamedTag(message.Get(), L"Keyword", PT_STRING8), "red");
        SetLong(message.Get(), NamedTag(message.Get(), kAppointment, 0x8205, PT_LONG), 2);
        SetText(message.Get(), NamedTag(message.Get(), L"LarchID", PT_STRING8), "mine");
        Attach(message, std::string(70000, 'a'));
        Enclose(message, "inner");
        Address(message, "Ann");
        EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return message;
    }
    // Its names are numbered in another order.
    TestRef<IMessage> CopyOf(const TestRef<IMessage>& original) {
        const auto copy = NewMessage(right.Get(), "");
        NamedTag(copy.Get(), L"Keyword", PT_STRING8);
        EXPECT_EQ(original->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, copy.Get(), 0, nullptr),
                  S_OK);
        SetText(copy.Get(), NamedTag(copy.Get(), L"LarchID", PT_STRING8), "yours");
        EXPECT_EQ(copy->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return copy;
    }
    static bool Same(const TestRef<IMessage>& a, const TestRef<IMessage>& b) {
        return HaveSameContents(IMessagePtr(a.Get()), IMessagePtr(b.Get()));
    }

    static constexpr GUID kAppointment = {0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
};
}  // namespace

TEST_F(SameContentsTest, AnyDifferenceCounts) {
    const auto original = Original();
    EXPECT_TRUE(Same(original, CopyOf(original)));
    const Change changes[] = {
        [](const auto& m) { SetText(m.Get(), PR_SUBJECT_A, "B"); },
        [](const auto& m) { SetText(m.Get(), PR_BODY_A, std::string(69999, 'x') + "y"); },
        [](const auto& m) { SetText(m.Get(), PR_BODY_A, std::string(70001, 'x')); },
        [](const auto& m) { SetText(m.Get(), PR_BODY_A, "short"); },
        [](const auto& m) { SetLong(m.Get(), PR_SENSITIVITY, 1); },
        [](const auto& m) { SetText(m.Get(), NamedTag(m.Get(), L"Keyword", PT_STRING8), "blue"); },
        [](const auto& m) { SetLong(m.Get(), NamedTag(m.Get(), kAppointment, 0x8205, PT_LONG), 3); },
        [](const auto& m) { SetText(m.Get(), NamedTag(m.Get(), L"More", PT_STRING8), "x"); },
        [](const auto& m) { Attach(m, "more"); },
        [](const auto& m) {
            EXPECT_EQ(m->DeleteAttach(0, 0, nullptr, 0), S_OK);
            Attach(m, std::string(69999, 'a') + "b");
        },
        [](const auto& m) {
            EXPECT_EQ(m->DeleteAttach(1, 0, nullptr, 0), S_OK);
            Enclose(m, "inner, changed");
        },
        [](const auto& m) { Address(m, "Bob"); },
    };
    int number = 0;
    for (const Change& change : changes) {
        SCOPED_TRACE(number++);
        const auto copy = CopyOf(original);
        change(copy);
        EXPECT_EQ(copy->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        EXPECT_FALSE(Same(original, copy));
        EXPECT_FALSE(Same(copy, original));
    }
}
