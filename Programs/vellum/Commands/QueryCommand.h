#pragma once
class CCommandTable;

// query check, print, run, fields and stored.
void AddQueryCommands(CCommandTable& table);
