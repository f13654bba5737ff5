// The tasks of the Wi-Fi, WPS and LED buttons. Each opens a store handle of
// its own, acts on the store and closes the handle; none keeps state.
#pragma once

// 1 when the Wi-Fi master switch is on and mesh is enabled, else 0.
int is_mesh_enable();
// Flips the Wi-Fi master switch and saves the store.
void wlan_button_task();
// Flips all LEDs, the store first, and saves the store.
void led_control_button_task();
// Mesh onboarding on a mesh gateway; otherwise WPS on each of the two
// access points that may start it.
void wps_button_task();
