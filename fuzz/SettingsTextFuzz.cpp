// Lists of pairs from anywhere: hostile text is read as far as it can be, and a list never grows by being
// written and read again.
#include <Tarn/Settings/TarnSettings.h>

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    CTarnSettings settings;
    settings.ParseSettingsText(std::string(reinterpret_cast<const char*>(data), size));
    const std::string text = settings.BuildSettingsText();
    CTarnSettings again;
    again.ParseSettingsText(text);
    if (again.Count() > settings.Count()) std::abort();
    for (size_t i = 0; i < again.Count(); ++i)
        if (again.At(i).m_sourceKey.empty() || again.Find(again.At(i).m_sourceKey) != &again.At(i))
            std::abort();
    return 0;
}
