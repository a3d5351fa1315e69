#include "Interfaces/TDWServer.h"

const TDWServer kTidewellServerList = "tdw_list";
const TDWServer kTidewellServerInfo = "tdw_info";
const TDWServer kTidewellServerConfig = "tdw_config";
const TDWServer kTidewellServerBattery = "tdw_battery";
const TDWServer kTidewellServerCompanion = "tdw_companion";
const TDWServer kTidewellServerCompanionBattery = "tdw_companion_battery";
const TDWServer kTidewellServerWallpaper = "tdw_wallpaper";
const TDWServer kTidewellServerPairing = "tdw_pairing";
const TDWServer kTidewellServerEvents = "tdw_events";
const TDWServer kTidewellServerTest = "tdw_test";
