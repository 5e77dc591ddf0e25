// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

/// Evaluation flags, the last argument of every eval operation.
enum EvalFlags : unsigned {
    /// A variable without a definition records itself with ValRepCache::setBVar; operations are applied as with
    /// EvalValues.
    EvalGatherBVars = 1,
    /// Compute numbers. Without this and EvalGatherBVars only constants are evaluated, anything else gives a NaN value.
    EvalValues = 4,
    /// A function that can turn real input complex keeps real storage; its domain failures then show as NaN elements.
    EvalKeepReal = 8,
    /// A complex value of a constant or variable is a failure with the message "varcmplx".
    EvalNoComplex = 0x10,
    /// Error bits of single elements do not turn the result into a NaN value.
    EvalIgnoreElementErrors = 0x100,
    /// Two bits that only keep entries of a ValRepCache apart; a host gives them their meaning.
    EvalVariantMask = 0x600
};
