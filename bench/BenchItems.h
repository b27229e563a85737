// Items as real ones are, about 1.5 KB in thirty properties, and the way to make many of them fast.
#pragma once
#include <support/StoreFixture.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

inline constexpr size_t kBenchBodySize = 900;

// Throws std::runtime_error that names `what` where a call failed.
void Must(HRESULT hr, const char* what);

// Words of lower-case letters, the same from run to run.
std::string RandomText(std::mt19937_64& random, size_t size);

// Gathers the saves of a store while it lives.
class CGathered {
public:
    explicit CGathered(IMsgStore* store);
    ~CGathered();
    CGathered(const CGathered&) = delete;
    CGathered& operator=(const CGathered&) = delete;

private:
    TestRef<IStoreBatch> m_batch;
};

// The values of one item. The texts live here while SetOn reads them.
class CItemValues {
public:
    CItemValues(IMAPIFolder* folder, int number, std::mt19937_64& random);
    // Throws std::runtime_error.
    void SetOn(IMessage* message);

private:
    SPropValue& Add(ULONG tag);
    void Text(ULONG tag, std::string text);
    void Long(ULONG tag, LONG value) { Add(tag).Value.l = value; }
    void Time(ULONG tag, std::mt19937_64& random);

    std::vector<SPropValue> m_values;
    std::vector<std::string> m_texts;
};

// Makes items number 1 to `count` in `folder` of `store`, in batches; `more` may add to each before it is
// saved.
void MakeItems(IMsgStore* store, IMAPIFolder* folder, int count,
               const std::function<void(IMessage*, int number)>& more = nullptr);
