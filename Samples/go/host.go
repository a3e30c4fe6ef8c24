// A host in another language, through the C interface: prints the current locations whenever they change, until its
// standard input ends.   GOOS=windows GOARCH=amd64 go build host.go     (QeLaC.dll and the others lie beside it)
package main

import (
	"fmt"
	"io"
	"os"
	"syscall"
	"unsafe"
)

type options struct { // qela_options of qela.h
	size, flags, callTimeoutMs, quietMs uint32
	criticalSection                     uintptr
}

var kit = syscall.NewLazyDLL("QeLaC.dll")

// What an argument points at must stay where it is during the call.
//
//go:uintptrescapes
func call(name string, arguments ...uintptr) bool {
	status, _, _ := kit.NewProc(name).Call(arguments...)
	if status != 0 {
		fmt.Fprintf(os.Stderr, "%s: status %d of qela.h\n", name, status)
	}
	return status == 0
}

func onChange(current, context uintptr) uintptr {
	var count uint32
	call("qela_locations_count", current, uintptr(unsafe.Pointer(&count)))
	fmt.Print("current:")
	for i := uint32(0); i < count; i++ {
		var location uintptr
		var name [256]uint16
		length := uint32(len(name))
		if call("qela_locations_at", current, uintptr(i), uintptr(unsafe.Pointer(&location))) {
			call("qela_location_get_name", location, uintptr(unsafe.Pointer(&name[0])), uintptr(unsafe.Pointer(&length)))
			call("qela_location_release", location)
			fmt.Print(" ", syscall.UTF16ToString(name[:]))
		}
	}
	fmt.Println()
	return 0
}

func main() {
	opened := options{size: uint32(unsafe.Sizeof(options{})), quietMs: 200}
	var service uintptr
	if !call("qela_open", uintptr(unsafe.Pointer(&opened)), uintptr(unsafe.Pointer(&service))) ||
		!call("qela_start", service, syscall.NewCallback(onChange), 0) {
		os.Exit(1)
	}
	io.Copy(io.Discard, os.Stdin)
	if !call("qela_close", service) {
		os.Exit(1)
	}
}
