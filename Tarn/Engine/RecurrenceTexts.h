// The recurrence of an appointment (AppointmentRecur in PSETID_Appointment) holds, beside the pattern, what
// was changed in single occurrences, their subjects and locations included.
#pragma once
#include <optional>
#include <string>

// The same pattern and changed occurrences, made of numbers alone: without texts, without reserved blocks and
// without whatever follows the end. Empty for bytes that are no recurrence.
std::optional<std::string> RecurrenceWithoutTexts(const std::string& recurrence);

struct CReturnedRecurrence {
    std::string bytes;
    bool losesTexts = false;  // an occurrence of the original that has some is no changed one any more
};
// The pattern of `copy` with the texts of the occurrences that `original` has on the same days; texts of the
// copy do not count. The original's own bytes where the copy differs in nothing else. Empty where one of the
// two is no recurrence.
std::optional<CReturnedRecurrence> RecurrenceWithTextsOf(const std::string& original,
                                                         const std::string& copy);
