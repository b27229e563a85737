// Keeps two processes of one profile from running the same pair at the same time.
#pragma once
#include <Platform/Files.h>
#include <Tarn/Engine/TarnSetting.h>

#include <functional>
#include <string>

// How long a run waits for another one that has its pair.
struct CPatience {
    static constexpr unsigned kForEver = ~0u;
    unsigned seconds = 0;  // 0: one try
    // Called once, before the waiting begins, with the words of PairHolder; may be empty.
    std::function<void(const std::string& holder)> onWait;
};

enum class LockAnswer { Taken, Busy, Interrupted };

// A pair, held until the object or its process dies. What a run does is the same with it and without.
//
// Another run of the same pair is refused, or waited for as `patience` has it. A run of another pair that
// shares a folder with this one is always waited for: both would write to that folder, and the second
// would look at what the first has half done.
class CPairLock {
public:
    // `holder` receives who holds the pair, for a person ("process 17 on desk, since ..."), where the
    // answer is Busy. Interrupted: Ctrl-C came while waiting.
    LockAnswer Take(const std::string& profile, const CTarnSetting& pair, const CPatience& patience,
                    std::string& holder);

private:
    CProcessLock m_pair;
    CProcessLock m_first;
    CProcessLock m_second;
};
