#!/bin/bash
# Locations need keys and values of the machine's registry.
. "$(dirname "$0")/lab.sh"

add_adapter wifi0
join_network wifi0 10.20.0.15/24 10.20.0.1
{
  qela location add Installed --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\'
  qela location add Office --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\Site=Office'
  qela location add Lower --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\Site=office'
  qela location add Level3 --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\Level=3'
  qela location add User --registry 'HKEY_CURRENT_USER\Software\Vendor\=Default'
  # Any one of a location's requirements will do.
  qela location add Either --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\None\' --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\Site=Office'
  # A location that is tied to the network as well needs both.
  qela location add OfficeLan --gateway 10.20.0.1 --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\Site=Office'
  qela location add OtherLan --gateway 10.99.0.1 --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\Site=Office'
} >/dev/null

it "needs the key"
expect "$(names_of_current)" ""
reg add 'HKLM\SOFTWARE\Vendor' /f /reg:64 >/dev/null
expect "$(names_of_current)" "Installed"

it "needs a text value to be exactly the data"
reg add 'HKLM\SOFTWARE\Vendor' /v Site /d Office /f /reg:64 >/dev/null
expect "$(names_of_current)" "Installed Office Either OfficeLan"

it "needs a number to have the digits"
reg add 'HKLM\SOFTWARE\Vendor' /v Site /d Home /f /reg:64 >/dev/null
reg add 'HKLM\SOFTWARE\Vendor' /v Level /t REG_DWORD /d 3 /f /reg:64 >/dev/null
expect "$(names_of_current)" "Installed Level3"

it "takes an empty value name with data for the key's default value"
reg add 'HKCU\Software\Vendor' /ve /d Default /f >/dev/null
expect "$(names_of_current)" "Installed Level3 User"

it "does not look into the 32-bit view"
reg delete 'HKLM\SOFTWARE\Vendor' /f /reg:64 >/dev/null
reg add 'HKLM\SOFTWARE\Vendor' /v Site /d Office /f /reg:32 >/dev/null
expect "$(names_of_current)" "User"
