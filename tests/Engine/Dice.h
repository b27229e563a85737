// Random numbers that are the same on every machine, which the distributions of the library do not promise.
#pragma once
#include <Platform/StoreExtensions.h>

#include <iterator>
#include <random>
#include <string>

class CDice {
public:
    explicit CDice(unsigned seed) : m_engine(seed) {}
    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_engine() % limit); }
    bool OneIn(unsigned chances) { return Below(chances) == 0; }
    // Up to three habits of a store; `names` receives what they are called.
    ULONG Habits(std::string& names) {
        ULONG habits = 0;
        for (unsigned i = Below(4); i > 0; --i) {
            const CStoreHabitName& habit = kStoreHabits[Below(std::size(kStoreHabits))];
            habits |= habit.habit;
            names += std::string(" ") + habit.name;
        }
        return habits;
    }

private:
    std::mt19937 m_engine;
};
