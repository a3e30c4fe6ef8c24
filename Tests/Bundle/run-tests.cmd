@echo off
rem Runs the tests of QeLaLib on this machine and packs what they found into report.zip. README.txt tells more.
rem   run-tests.cmd [FILTER]   FILTER: googletest's patterns of the tests to run, without a minus
rem Exit code: 0 when all passed, 1 otherwise.
rem
rem Delayed expansion stays off, so that the folder may have any name; what changes in a loop stands in subroutines.
rem The system's programs are called by their full names: others of the same names may come first in the path.
setlocal EnableExtensions DisableDelayedExpansion
set "here=%~dp0"
set "system=%SystemRoot%\System32"
set "filter=%~1"
if not defined filter set "filter=*"
set "limit=600"
set /a passed=0
set /a failed=0
set /a skipped=0

set "report=%here%report"
call :make_report
if not exist "%report%\machine\SHA256SUMS" set "report=%TEMP%\QeLaLib-report"
if not exist "%report%\machine\SHA256SUMS" call :make_report
if not exist "%report%\machine\SHA256SUMS" echo There is no room for a report, neither beside run-tests.cmd nor in "%TEMP%".
if not exist "%report%\machine\SHA256SUMS" exit /b 1
set "zip=%report%.zip"
if exist "%zip%" del "%zip%"
rem Relative names from here on: the frameworks of the tests take those of any folder.
pushd "%report%"

call :tell_machine
rem Elevated is who may write where the elevated tests write.
set "elevated=no"
"%system%\reg.exe" add HKLM\SOFTWARE\QeLaLibTests-elevation /f >nul 2>nul
if not errorlevel 1 set "elevated=yes"
if "%elevated%"=="yes" "%system%\reg.exe" delete HKLM\SOFTWARE\QeLaLibTests-elevation /f >nul 2>nul
if "%elevated%"=="yes" call :say Runs elevated.
if "%elevated%"=="no" call :say Runs as a normal user.

set "without="
for /f "usebackq eol=# tokens=1,*" %%a in ("%here%needs-the-lab.txt") do call :skip "%%a" "%%b"
if "%elevated%"=="no" for /f "usebackq eol=# tokens=1,*" %%a in ("%here%needs-elevation.txt") do call :skip "%%a" "%%b"
if defined without set "without=-%without%"

rem The library keeps one instance a process, so those that have the library in it run one test a process.
call :whole UnitTests
call :each WindowsTruthTests
call :each ContractTests
call :each KitTests
call :each QelaFailureTests
call :each SoakTests
if "%filter%"=="*" call :host ExampleHost
if "%filter%"=="*" call :host KitExampleHost
rem What they find lies in the report.
if "%filter%"=="*" call :host FuzzTests --replay "%here%bin\Tests\Fuzz\Corpus"
if "%filter%"=="*" call :host FuzzTests --replay "%here%bin\Tests\Fuzz\Corpus" --guard

set "result=%passed% passed, %failed% failed, %skipped% skipped"
call :say %result%
popd
call :pack
if exist "%zip%" echo Send back: "%zip%"
if not exist "%zip%" echo Send back the folder: "%report%"
echo %result%
if not "%failed%"=="0" exit /b 1
if "%passed%"=="0" exit /b 1
exit /b 0

rem The report's folder, with nothing in it but which tests these are.
:make_report
if exist "%report%" rd /s /q "%report%"
md "%report%" 2>nul
md "%report%\junit" 2>nul
md "%report%\logs" 2>nul
md "%report%\machine" 2>nul
copy /y "%here%SHA256SUMS" "%report%\machine\SHA256SUMS" >nul 2>nul
exit /b 0

rem On the console and in the summary.
:say
echo %*
>>summary.txt echo %*
exit /b 0

:tell_machine
ver >machine\ver.txt
"%system%\whoami.exe" /groups >machine\groups.txt 2>&1
"%system%\ipconfig.exe" /all >machine\ipconfig.txt 2>&1
"%system%\systeminfo.exe" >machine\systeminfo.txt 2>&1
"%here%bin\WithLimit.exe" %limit% "%here%bin\qela.exe" --version >machine\qela.txt 2>&1
"%here%bin\WithLimit.exe" %limit% "%here%bin\qela.exe" adapters >machine\qela-adapters.txt 2>&1
exit /b 0

rem :skip NAME REASON: it takes no part.
:skip
set /a skipped+=1
>>summary.txt echo skipped %~1: %~2
if defined without set "without=%without%:%~1"
if not defined without set "without=%~1"
exit /b 0

rem :run PROGRAM NAME: one process, of the tests that GTEST_FILTER names; code, xml and log are what it left.
:run
set "name=%~2"
set "name=%name:/=-%"
set "xml=junit\%name%.xml"
set "log=logs\%name%.txt"
"%here%bin\WithLimit.exe" %limit% "%here%bin\%~1.exe" "--gtest_output=xml:%xml%" --gtest_color=no <nul >"%log%" 2>&1
set "code=%ERRORLEVEL%"
exit /b 0

rem :whole PROGRAM: all tests in one process; where that ends before its end, one test a process.
:whole
echo %1
set "GTEST_FILTER=%filter%%without%"
call :run %1 %1
if not exist "%xml%" goto each
set "tests="
for /f "usebackq skip=1 tokens=3,5 delims== " %%a in ("%xml%") do if not defined tests call :take_counts %%a %%b
if not defined tests call :fail %1 %1
if not defined tests exit /b 0
"%system%\find.exe" /c "<skipped" <"%xml%" >count.txt
set /p passed_over=<count.txt
del count.txt
set /a skipped+=passed_over
set /a failed+=failures
set /a passed+=tests-failures-passed_over
"%system%\find.exe" "[  FAILED  ] " <"%log%" >>summary.txt
"%system%\find.exe" "[  SKIPPED ] " <"%log%" >>summary.txt
if "%code%%failures%"=="00" exit /b 0
echo   FAILED %1: %failures% tests, exit code %code%
rem The tests passed and the process did not.
if "%failures%"=="0" call :fail %1 %1
exit /b 0

:take_counts
set "tests=%~1"
set "failures=%~2"
exit /b 0

rem :each PROGRAM: one test a process.
:each
echo %1, one test a process
set "GTEST_FILTER=%filter%%without%"
"%here%bin\WithLimit.exe" %limit% "%here%bin\%1.exe" --gtest_list_tests <nul >list.txt 2>logs\%1.txt
set "code=%ERRORLEVEL%"
if not "%code%"=="0" call :fail %1 %1
if not "%code%"=="0" type list.txt >>logs\%1.txt
if "%code%"=="0" del logs\%1.txt
set "suite="
if "%code%"=="0" for /f "usebackq tokens=1" %%t in ("list.txt") do call :take_line %1 "%%t"
del list.txt
exit /b 0

rem A suite's name ends with a full stop, and its tests stand below it. What stands before the first is no test.
:take_line
set "word=%~2"
if "%word:~-1%"=="." set "suite=%word%"
if "%word:~-1%"=="." exit /b 0
if not defined suite exit /b 0
set "test=%suite%%word%"
set "GTEST_FILTER=%test%"
call :run %1 "%1.%test%"
if not "%code%"=="0" goto failed_test
if not exist "%xml%" goto failed_test
"%system%\find.exe" "<skipped" <"%xml%" >nul
if not errorlevel 1 goto skipped_test
set /a passed+=1
del "%log%"
exit /b 0

:failed_test
call :fail %1 "%test%"
if not exist "%xml%" call :write_error "%test%"
exit /b 0

:skipped_test
set /a skipped+=1
>>summary.txt echo skipped %test%: see %log%
exit /b 0

rem :fail PROGRAM TEST
:fail
set /a failed+=1
echo   FAILED %~2, exit code %code%
>>summary.txt echo FAILED %~2 of %~1, exit code %code%
exit /b 0

rem The test ended its process before it could write.
:write_error
>"%xml%" echo ^<?xml version="1.0" encoding="UTF-8"?^>
>>"%xml%" echo ^<testsuites tests="1" failures="0" errors="1"^>^<testsuite name="ended" tests="1" failures="0" errors="1"^>
>>"%xml%" echo ^<testcase name="%~1" classname="ended"^>^<error message="exit code %code%"/^>^</testcase^>^</testsuite^>^</testsuites^>
exit /b 0

rem :host PROGRAM [ARGUMENT...]: a host that runs to its end, as its input is empty; or another program that is one test.
:host
echo %1 %4
"%here%bin\WithLimit.exe" %limit% "%here%bin\%1.exe" %2 %3 %4 <nul >logs\%1%4.txt 2>&1
set "code=%ERRORLEVEL%"
if "%code%"=="0" set /a passed+=1
if not "%code%"=="0" call :fail %1 %1
exit /b 0

rem tar.exe of Windows 10, or PowerShell; where there is neither, the folder stays as it is.
:pack
if exist "%system%\tar.exe" "%system%\tar.exe" -a -c -f "%zip%" -C "%report%" . >nul 2>nul
if exist "%zip%" exit /b 0
set "powershell=%system%\WindowsPowerShell\v1.0\powershell.exe"
if exist "%powershell%" "%powershell%" -NoProfile -Command "Compress-Archive -LiteralPath $env:report -DestinationPath $env:zip" <nul >nul 2>nul
exit /b 0
