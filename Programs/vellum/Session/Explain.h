// Failures of the mail system in the words of a person.
#pragma once
#include <MapiWrapper/MapiException.h>
#include <Programs/vellum/Console/ExitCode.h>

#include <string>

// "it does not exist", "there is no permission for it" and so on; for codes that have no words of their
// own the symbol.
std::string Explain(HRESULT hr);
// The same, with the reason behind it where the store gave one: "the disk is full (database or disk is
// full)".
std::string Explain(const CMAPIException& exception);

// Ends the command with "`what`: explanation" if hr is negative.
void CheckCall(HRESULT hr, const std::string& what, ExitCode code = ExitCode::Internal);
