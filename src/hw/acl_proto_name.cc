// Names of the platform's protocol registry codes, used only to print a protocol in messages.
#include <algorithm>
#include <cstdint>

#include "hw/acl_if_record.h"

namespace {

constexpr uint32_t kProtoCodes = 385;  // the registry's size; codes from here on have no name

struct ProtoName {
  uint32_t code;
  const char* name;
};

// The codes that carry a name, ascending; the others print as "unknown".
// clang-format off
constexpr ProtoName kProtoNames[] = {
    {0, "dot1x"}, {1, "test"}, {2, "lacp"}, {3, "dot3ah"}, {4, "stp-c"}, {5, "stp-p"},
    {6, "dot1ag"}, {7, "lldp"}, {8, "garp"}, {9, "gvrp"}, {10, "gmrp"}, {11, "vtp"}, {12, "udld"},
    {13, "loopdetect"}, {14, "protect-link"}, {15, "g8031"}, {16, "g8032"}, {17, "rer"},
    {18, "esr"}, {19, "pppoe+hw"}, {20, "bpdu-tunnel"}, {21, "igmp-snooping"}, {22, "mld-snooping"},
    {23, "dhcp-snooping"}, {24, "dhcp6-snooping"}, {25, "flush"}, {26, "bfd2"}, {27, "hvs"},
    {28, "sgm"}, {29, "l2net"}, {30, "mpls"}, {31, "mlag"}, {32, "mvrp"}, {33, "mmrp"},
    {34, "elmi"}, {35, "cdmp"}, {36, "sync"}, {37, "ha"}, {38, "mab"}, {39, "lcp"}, {40, "pap"},
    {41, "chap"}, {42, "ipcp"}, {43, "ipcpv6"}, {44, "vlp"}, {45, "webauth"}, {46, "g8131"},
    {47, "g8132"}, {48, "g8113"}, {49, "lldp-p"}, {50, "rip"}, {51, "ospf"}, {52, "bgp"},
    {53, "pim"}, {54, "isis"}, {55, "vrrp"}, {56, "dhcp-server"}, {57, "bfd"}, {58, "ldp"},
    {59, "rsvp"}, {60, "sntp/ntp"}, {61, "igmp"}, {62, "arp"}, {63, "arp-all"}, {64, "dns"},
    {65, "http"}, {66, "iphelper"}, {67, "l2tp"}, {68, "mpls-ping"}, {69, "monitor-link"},
    {72, "dvmrp"}, {73, "mac-auth"}, {74, "mad"}, {75, "dhcp-client"}, {77, "dhcp-relay"},
    {78, "msdp"}, {80, "ipv4-all"}, {81, "pppoe-server"}, {82, "pppoe-relay"}, {83, "esmc"},
    {84, "fip-snooping"}, {100, "rip6"}, {101, "ospf6"}, {102, "bgp6"}, {103, "pim6"},
    {104, "isis6"}, {105, "vrrp6"}, {106, "dhcp6-server"}, {107, "bfd6"}, {108, "ldp6"},
    {109, "rsvp6"}, {110, "sntp6/ntp6"}, {111, "mld"}, {112, "nd"}, {113, "nd-all"}, {114, "dns6"},
    {115, "http6"}, {116, "rsra"}, {117, "ipv6-all"}, {118, "user"}, {119, "hdlc"}, {120, "ppp"},
    {121, "ipsec"}, {122, "ike"}, {123, "hdlc-cisco"}, {124, "mpls-oam"}, {125, "pkt-all"},
    {126, "dhcpv6-relay"}, {127, "dhcp6client"}, {130, "ipv4-dropall"}, {131, "ipv6-dropall"},
    {132, "arp-dropall"}, {133, "nd-dropall"}, {134, "drop-bcst"}, {135, "drop-all"},
    {136, "syslog"}, {137, "smtp"}, {138, "telnet"}, {139, "ssh"}, {140, "openflow"},
    {141, "pppoe+"}, {142, "dlp"}, {143, "y1731"}, {144, "ssh6"}, {145, "snmp"}, {146, "snmp6"},
    {147, "telnet6"}, {148, "https"}, {149, "https6"}, {150, "fhip"}, {151, "pep"},
    {152, "telemetry"}, {153, "syslog6"}, {154, "smtp6"}, {155, "snmptrap"}, {156, "snmptrap6"},
    {157, "netbioss"}, {160, "vlan"}, {161, "mac-vlan"}, {162, "ipsubnet-vlan"},
    {163, "protocol-vlan"}, {164, "mirror"}, {165, "acl"}, {166, "diff-srv"},
    {167, "schedule-profile"}, {168, "hwroute"}, {169, "eth-agg"}, {170, "pon-agg"},
    {171, "stg-share"}, {172, "mff"}, {173, "onu-mng"}, {174, "netflow"}, {175, "tunnel"},
    {176, "arl"}, {177, "system"}, {178, "l3vpn"}, {179, "rmon"}, {180, "mpgrp"}, {181, "mfr"},
    {182, "hdlc-bundle"}, {183, "poe"}, {184, "ipsg"}, {185, "nat"}, {186, "nat64"},
    {187, "cpu-defend"}, {188, "mpls-te"}, {189, "anti-dos"}, {190, "storm-suppressions"},
    {191, "storm-ctrl"}, {192, "mam"}, {193, "port-security"}, {194, "arpmiss"}, {195, "ndprobe"},
    {196, "nve"}, {197, "bd"}, {198, "port-isolate"}, {199, "voicevlan"}, {200, "pm"}, {201, "ddm"},
    {202, "wred"}, {203, "qinq"}, {204, "vlanmapping"}, {205, "ivi"}, {206, "policy-route"},
    {207, "par"}, {208, "arp-vxlan"}, {209, "mac-limit"}, {210, "dos-antiattack"},
    {211, "flexegroupif"}, {212, "loopbackif"}, {213, "nullif"}, {214, "vxlan"},
    {215, "virt-accessif"}, {216, "virt-tempalteif"}, {218, "queue"}, {219, "arpantiattack"},
    {220, "linkflap"}, {221, "xlatevlan"}, {222, "aaa"}, {223, "ztp"}, {224, "routepolicy"},
    {225, "aspath"}, {226, "ipprefix"}, {227, "arpproxy"}, {228, "vct"}, {229, "qos"},
    {230, "stackif"}, {231, "epairif"}, {232, "ndsnooping"}, {233, "pvlan"}, {234, "bfdconfig"},
    {235, "nqa"}, {236, "icmp"}, {237, "icmpv6"}, {238, "ethif"}, {239, "devm"}, {240, "fs"},
    {241, "ftp"}, {242, "tftp"}, {243, "ftp6"}, {244, "tftp6"}, {245, "ethsubif"}, {246, "dxs"},
    {247, "pfc"}, {248, "netconf"}, {249, "ip"}, {250, "ipv6"}, {251, "udp"}, {252, "udpv6"},
    {253, "tcp"}, {254, "tcpv6"}, {255, "sctp"}, {256, "urpf"}, {257, "fibhit"}, {258, "fibhit6"},
    {260, "ndmiss"}, {261, "arpl2proxy"}, {262, "ndl2proxy"}, {265, "l2tftp"}, {266, "l2ftp"},
    {269, "twamp"}, {270, "flexeclient"}, {271, "flexe"}, {272, "aem"}, {273, "ethppp"},
    {274, "lpt"}, {275, "lpf"}, {276, "wdm"}, {277, "ncm"}, {279, "lbm"}, {280, "icm"},
    {281, "hrd"}, {282, "entity"}, {283, "ets"}, {284, "evpn"}, {285, "mod"}, {286, "vpls"},
    {287, "vpws"}, {288, "dcn"}, {289, "watchdog"}, {290, "hqos"}, {291, "clock"}, {292, "logging"},
    {293, "arpprobe"}, {294, "timerange"}, {295, "hwmc"}, {296, "mdb"}, {297, "mgtacl"},
    {298, "um"}, {299, "ping"}, {300, "tracert"}, {301, "cli"}, {302, "patch"}, {303, "cdl"},
    {304, "netstack"}, {305, "hwal"}, {306, "hwpp"}, {307, "pdim"}, {308, "crb"},
    {309, "antiattack"}, {310, "tr069"}, {311, "hwvp"}, {312, "bshell"}, {313, "cfx"},
    {314, "auto-upload"}, {315, "ra"}, {316, "cfm"}, {317, "trafficpolicy"},
    {318, "mad-excludeport"}, {319, "mad-delay"}, {320, "nac"}, {321, "protocol-merge"},
    {322, "netconf6"}, {323, "lamp"}, {324, "l2-unknownprotocol"}, {325, "sync1"}, {326, "sync2"},
    {327, "sync3"}, {328, "portsplit"}, {329, "l2cp"}, {330, "mcastctrl"}, {331, "l3vpn6"},
    {332, "pagp"}, {333, "cdp"}, {334, "mcastsim"}, {335, "sflow"}, {336, "sgmlite"},
    {337, "dhcpsim"}, {338, "dcbx"}, {339, "ecn"}, {340, "ponline"}, {341, "ponservice"},
    {353, "mag"}, {354, "utm"}, {355, "macsec"}, {356, "rocev1"}, {357, "rocev2"}, {358, "gre"},
    {359, "virt"}, {360, "capwap"}, {361, "mpg"}, {362, "vxlan-echo"}, {363, "vxlan-echo6"},
    {364, "mplsqos"}, {365, "emf"}, {366, "srv6"}, {367, "srmpls"}, {369, "nd-vxlan"},
    {370, "capwap6"}, {371, "l2vpn"}, {372, "twamp-test"}, {373, "capwap-data"},
    {374, "capwap6-data"}, {376, "cspf"}, {377, "ospf6-esp"}, {378, "esp6"}, {379, "tunnelpolicy"},
    {384, "max-proto"},
};
// clang-format on

constexpr bool ascendingBelowSize() {
  for (size_t i = 0; i < std::size(kProtoNames); ++i) {
    if (kProtoNames[i].code >= kProtoCodes) return false;
    if (i > 0 && kProtoNames[i - 1].code >= kProtoNames[i].code) return false;
  }
  return true;
}
static_assert(ascendingBelowSize());

}  // namespace

const char* aclProtoNameGet(uint32_t proto) {
  if (proto >= kProtoCodes) return "unknown";
  const auto* end = std::end(kProtoNames);
  const auto* it = std::lower_bound(std::begin(kProtoNames), end, proto,
                                    [](const ProtoName& p, uint32_t c) { return p.code < c; });
  return it != end && it->code == proto ? it->name : "unknown";
}
