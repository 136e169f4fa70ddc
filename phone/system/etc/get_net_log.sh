# get_net_log.sh FILE: captures packets into FILE until killed. A bench phone has no traffic: FILE gets the header of
# a pcap file (magic, version 2.4, 262144 bytes a packet, Ethernet).
printf '\324\303\262\241\002\000\004\000\000\000\000\000\000\000\000\000\000\000\004\000\001\000\000\000' > "$1"
exec sleep 1000000
