# Completion of qela's commands, options and location names for PowerShell. Load it in the profile: . C:\path\qela.ps1
Register-ArgumentCompleter -Native -CommandName qela, qela.exe -ScriptBlock {
    param($wordToComplete, $commandAst, $cursorPosition)
    $words = @($commandAst.CommandElements | Select-Object -Skip 1 |
        Where-Object { $_.Extent.EndOffset -lt $cursorPosition } | ForEach-Object { $_.ToString().Trim('"', "'") })
    $begun = if ($wordToComplete) { $wordToComplete } else { '""' } # an empty argument would not arrive
    & $commandAst.GetCommandName() complete -- @words $begun 2>$null | ForEach-Object {
        $text = if ($_ -match '[^\w.*-]') { "'" + $_.Replace("'", "''") + "'" } else { $_ }
        [System.Management.Automation.CompletionResult]::new($text, $_, 'ParameterValue', $_)
    }
}
