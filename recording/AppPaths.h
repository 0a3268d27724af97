// The suite's two folders on this machine: its data folder and the default
// folder of recordings. Making one makes sure that the suite's working
// folders exist.
//
// Data folder: "AppDataPath" of the older settings key (local machine) when
// that folder exists; else <base>/OKN/FathomBureau, created with
// <base>/OKN/CameraFiles, where <base> is "Common Documents" of the local
// machine's shell-folders key when set, else $XDG_DATA_HOME (default
// ~/.local/share); else the folder of the running program.
// Image folder: "ImgPath" of the current key, else of the older key, else the
// data folder. Both end in '/'.
#pragma once

#include <string>

namespace tarnvel {

struct AppPaths {
  AppPaths();

  std::string DataFolder;
  std::string ImageFolder;
};

// The folder of the running program, with no trailing separator.
std::string ProgramFolder();

}  // namespace tarnvel
