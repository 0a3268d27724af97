#include "channels/ChannelSettings.h"

#include <cstdio>
#include <string>

#include "platform/cordage/Profile.h"
#include "platform/cordage/TextField.h"

namespace tarnvel {

namespace {

constexpr char kProfileName[] = "_config.pgv";

}  // namespace

int ReadPlotSettings(const char* folder, PlotSettings* settings) {
  const std::string path = JoinPath(folder, kProfileName);
  const char* file = path.c_str();
  const PlotSettings defaults;
  constexpr char kSection[] = "DAGraph";
  CgReadProfileInteger(kSection, "DisplayChannel", defaults.DisplayChannel, &settings->DisplayChannel, file);
  CgReadProfileInteger(kSection, "XResolution", defaults.XResolution, &settings->XResolution, file);
  CgReadProfileInteger(kSection, "YResolution", defaults.YResolution, &settings->YResolution, file);
  CgReadProfileInteger(kSection, "UseUnits", defaults.UseUnits, &settings->UseUnits, file);
  CgReadProfileInteger(kSection, "ShowDataPoints", defaults.ShowDataPoints, &settings->ShowDataPoints, file);
  CgReadProfileInteger(kSection, "AllUnitsChannels", defaults.AllUnitsChannels, &settings->AllUnitsChannels, file);
  CgReadProfileInteger(kSection, "BackgroundColor", defaults.BackgroundColor, &settings->BackgroundColor, file);
  CgReadProfileInteger(kSection, "GridColor", defaults.GridColor, &settings->GridColor, file);
  CgReadProfileInteger(kSection, "CursorColor", defaults.CursorColor, &settings->CursorColor, file);
  CgReadProfileInteger(kSection, "LabelsColor", defaults.LabelsColor, &settings->LabelsColor, file);
  for (int i = 0; i < kChannelCount; ++i) {
    char key[32];
    std::snprintf(key, sizeof key, "ChannelColor_%02d", i);
    CgReadProfileInteger(kSection, key, defaults.ChannelColor[i], &settings->ChannelColor[i], file);
  }
  return 1;
}

int ReadChannelSettings(const char* folder, ChannelSettings* settings, int sectionNumber) {
  const std::string path = JoinPath(folder, kProfileName);
  const char* file = path.c_str();
  char section[48];
  std::snprintf(section, sizeof section, "DaGeneral_%d", sectionNumber);
  CgReadProfileInteger(section, "Status", 0, &settings->Status, file);
  CgReadProfileInteger(section, "SamplingRate", 10000, &settings->SamplingRate, file);
  if (settings->SamplingRate < 100) settings->SamplingRate = 100;
  CgReadProfileInteger(section, "SamplesPerFrame", 20, &settings->SamplesPerFrame, file);
  if (settings->SamplesPerFrame < 2) settings->SamplesPerFrame = 2;
  CgReadProfileInteger(section, "TriggerInToChannel1", 0, &settings->TriggerInToChannel1, file);

  for (int i = 0; i < kChannelCount; ++i) {
    ChannelEntry& entry = settings->Channels[i];
    std::snprintf(section, sizeof section, "DaChannel_%d_%d", sectionNumber, i);
    CgReadProfileInteger(section, "Enable", 0, &entry.Enable, file);
    CgReadProfileString(section, "Label", "", entry.Label, sizeof entry.Label, file);
    if (entry.Label[0] == '\0') std::snprintf(entry.Label, sizeof entry.Label, "Channel_%d", i + 1);
    CgReadProfileString(section, "Units", "", entry.Units, sizeof entry.Units, file);
    if (entry.Units[0] == '\0') CopyText(entry.Units, "[V]");
    CgReadProfileFloat(section, "ScaleFactor", 1.0f, &entry.ScaleFactor, file);
    if (entry.ScaleFactor == 0.0f) entry.ScaleFactor = 1.0f;
    std::int32_t gain = 0;
    CgReadProfileInteger(section, "Gain", 0, &gain, file);
    entry.Gain = static_cast<std::uint32_t>(gain < 0 ? 0 : gain > 3 ? 3 : gain);
  }
  return 1;
}

}  // namespace tarnvel
