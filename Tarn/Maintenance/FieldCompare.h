// Whether two items of one search key are the same to a person: what the fields of their class hold.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <cstddef>
#include <string>

// A plain tag, or a name of a set, whose values are then times.
struct CComparedField {
    ULONG tag;
    const char* set;
    LONG id;
};
struct CComparedFields {
    const CComparedField* fields;
    std::size_t count;
};

// Those of the first family that the class begins with (appointments, posts, notes, tasks, contacts); none
// for any other class, whose items are never taken for the same.
CComparedFields FieldsOfClass(const std::string& messageClass);

// True if no field tells them apart. One that either of them lacks does not; text is compared without white
// space at its end. Throws CMAPIException where a value is there and cannot be read: it may differ.
bool FieldCompare(const IMessagePtr& first, const IMessagePtr& second, const CComparedFields& fields);
