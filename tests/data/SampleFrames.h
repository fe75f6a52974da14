// Annotated LLDPDUs shared by tests and benchmarks.
#pragma once

namespace SampleFrames {

// An IP phone: MED capabilities, two network policies, coordinate and civic location,
// inventory and IEEE 802.3at power.
inline constexpr const char* kPhone = R"(
  02 07 04 00 04 f2 aa bb cc                          # Chassis ID: MAC 00:04:f2:aa:bb:cc
  04 07 03 00 04 f2 aa bb cc                          # Port ID: MAC
  06 02 00 b4                                         # TTL 180
  0a 0f 53 45 50 30 30 30 34 46 32 41 41 42 42 43 43  # System Name "SEP0004F2AABBCC"
  0e 04 00 24 00 24                                   # capabilities: bridge, telephone
  10 0c 05 01 0a 14 1e 28 02 00 00 00 03 00           # management address 10.20.30.40, ifIndex 3
  fe 07 00 12 bb 01 00 33 03                          # MED capabilities 0x33, endpoint class III
  fe 08 00 12 bb 02 01 40 c9 6e                       # policy: voice, tagged VLAN 100, priority 5, DSCP 46
  fe 08 00 12 bb 02 02 40 c9 18                       # policy: voice signalling, VLAN 100, priority 4, DSCP 24
  fe 15 00 12 bb 03 01                                # location: coordinate LCI
     88 4a c5 ae e6                                   #   latitude resolution 34, 37.3861 degrees
     8b 0b d5 0b 0f                                   #   longitude resolution 34, -122.0839 degrees
     17 80 00 0f 80                                   #   altitude metres, resolution 30, 15.5
     01                                               #   datum WGS84
  fe 17 00 12 bb 03 02                                # location: civic address LCI
     11 02 55 53                                      #   length 17, what 2, country "US"
     01 02 43 41                                      #   CA type 1 (state) "CA"
     03 08 53 61 6e 20 4a 6f 73 65                    #   CA type 3 (city) "San Jose"
  fe 09 00 12 bb 05 31 2e 30 2e 33                    # hardware revision "1.0.3"
  fe 0b 00 12 bb 06 32 2e 34 2e 31 2e 35              # firmware revision "2.4.1.5"
  fe 0c 00 12 bb 08 46 43 48 31 32 33 34 35           # serial number "FCH12345"
  fe 0c 00 12 bb 09 41 63 6d 65 20 49 6e 63           # manufacturer "Acme Inc"
  fe 0c 00 12 bb 0a 50 68 6f 6e 65 20 37 39           # model "Phone 79"
  fe 0c 00 12 0f 02                                   # IEEE 802.3 power via MDI
     06 01 04                                         #   PD, supported, enabled; pair 1; class 4
     51 00 82 00 82                                   #   type 1 (PD), source 1, priority 1; 13.0 W, 13.0 W
  00 00                                               # End of LLDPDU
)";

}  // namespace SampleFrames
