;;; emacs_lsp.el --- the lsp_emacs test, inside Emacs  -*- lexical-binding: t -*-

;; `kiv lsp' as eglot drives it, started by the Emacs setup of
;; docs/editors.md, which emacs_lsp.sh installs as the user's init.el.
;; Emacs runs as a daemon without a terminal: it starts as a user's Emacs
;; does (packages activated, init.el read) and runs its command loop, so
;; eglot-ensure, Flymake and the idle timers that send changes work as
;; they do for a user.  This file is loaded after init.el; it visits the
;; script as `emacs FILE' would.  The checks are steps, each run by the
;; command loop as a command (as if a key had been pressed); a step that
;; waits for the server leaves Emacs idle until what it waits for is there.
;; The environment gives the script with a planted mistake (KIV_E2E_FILE),
;; the example it was copied from (KIV_E2E_ORIGINAL) and the file to write
;; the result to (KIV_E2E_RESULT): "pass", or what failed.

;;; Code:

(require 'cl-lib)
(require 'subr-x)

;; What the editor must show of the planted copy of single_1080p.lua.
(defconst kiv-e2e-expect
  '(;; The only finding, on the planted line, as Flymake shows it.
    :diagnostic-text "kiv [unknown-key]: channels[0].hflp: no loader reads `hflp` here: it is ignored; did you mean `hflip`?"
    :diagnostic-code "unknown-key"
    :diagnostic-type eglot-warning
    ;; Keys of the first stream table, asked just after its `id = 0,'.
    :completion-line "{ id = 0, max_size = {1920, 1080}"
    :completion-after "id = 0,"
    :completion-offered "fast_seek_enable"
    :completion-new-text "fast_seek_enable = "
    :completion-not-offered "max_M"     ; given in that table already
    ;; Hover (ElDoc) on the key `bits' of the video source.
    :hover-line "\tbits = 12,"
    :hover-on "bits"
    :hover-mentions ("integer" "5 bits" "Stored as 12")
    ;; From the canvas source "chan_0.main" to the table of that buffer.
    :definition-line "source = {\"chan_0.main\"}"
    :definition-on "chan_0.main"
    :definition-target "\tmain = {"
    ;; From that table back to the canvases that take it.
    :references-target "source = {\"chan_0.main\"}"
    :fix-title "Replace `hflp` with `hflip`")
  "What `kiv lsp' must answer about the planted copy.")

(defun kiv-e2e--expect (key) (plist-get kiv-e2e-expect key))

(defconst kiv-e2e-wait 20 "Seconds to wait for the server (slow machines, emulation).")

;; The harness, not the user's setup: no auto-save file beside the script
;; should the session outlast auto-save-timeout (as nvim -n).
(setq auto-save-default nil)

(defvar kiv-e2e--failures nil "What failed, newest first.")

(defun kiv-e2e--fail (what &optional got)
  (push (if got (format "%s: got %S" what got) what) kiv-e2e--failures))

(defun kiv-e2e--check (ok what &optional got)
  (unless ok (kiv-e2e--fail what got))
  ok)

(defun kiv-e2e--goto (line-has &optional on)
  "Move point to the line containing LINE-HAS, at ON after it begins there."
  (goto-char (point-min))
  (unless (search-forward line-has nil t)
    (error "No line of the buffer contains %S" line-has))
  (goto-char (match-beginning 0))
  (when on (search-forward on (line-end-position))
        (goto-char (match-beginning 0))))

(defun kiv-e2e--line (&optional pos)
  (save-excursion
    (when pos (goto-char pos))
    (buffer-substring-no-properties (line-beginning-position) (line-end-position))))

(defun kiv-e2e--file-lines (file)
  (with-temp-buffer
    (insert-file-contents file)
    (split-string (buffer-string) "\n")))

(defun kiv-e2e--planted-line ()
  "The 1-based line where the planted copy differs from the example."
  (let ((copy (kiv-e2e--file-lines (getenv "KIV_E2E_FILE")))
        (original (kiv-e2e--file-lines (getenv "KIV_E2E_ORIGINAL")))
        planted)
    (cl-loop for c in copy for o in original for n from 1
             unless (equal c o)
             do (if planted (error "The copy differs from the example in more than one line")
                  (setq planted n)))
    (or planted (error "The copy does not differ from the example"))))

(defun kiv-e2e--capable (what)
  (if (fboundp 'eglot-server-capable) (eglot-server-capable what) (eglot--server-capable what)))


;;; The steps, in order.  Each returns nil, or (WHAT . PREDICATE) to have
;;; the next step wait, idle, until PREDICATE holds.

(defvar kiv-e2e--steps nil "The steps not run yet.")
(defmacro kiv-e2e-step (&rest body)
  "Append a step running BODY in the script's buffer."
  `(setq kiv-e2e--steps (append kiv-e2e--steps (list (lambda () ,@body)))))

(defvar kiv-e2e--buffer nil)
(defvar kiv-e2e--planted nil "The 1-based line of the mistake.")
(defvar kiv-e2e--server nil)
(defvar kiv-e2e--docs nil "What ElDoc got.")

(kiv-e2e-step
 (unless (fboundp 'eglot-ensure)
   (error "Eglot is missing: scripts/install-deps.sh installs elpa-eglot"))
 (unless (fboundp 'lua-mode)
   (error "lua-mode is missing: scripts/install-deps.sh installs elpa-lua-mode"))
 (setq kiv-e2e--planted (kiv-e2e--planted-line))
 (kiv-e2e--check (eq major-mode 'lua-mode) "the script is in lua-mode" major-mode)
 ;; eglot-ensure connects the setup's server after the first command.
 (cons "eglot manages the script" (lambda () (bound-and-true-p eglot--managed-mode))))

(kiv-e2e-step
 (setq kiv-e2e--server (eglot-current-server))
 (let ((command (process-command (jsonrpc--process kiv-e2e--server))))
   (kiv-e2e--check (equal command '("kiv" "lsp")) "the server is the setup's command" command))
 (cons "a diagnostic in Flymake" #'flymake-diagnostics))

;; The finding of the planted line through Flymake, and no other.
(kiv-e2e-step
 (let* ((diags (flymake-diagnostics))
        (d (car diags))
        (lsp (cdr (assq 'eglot-lsp-diag (flymake-diagnostic-data d)))))
   (kiv-e2e--check (= (length diags) 1) "one diagnostic" (mapcar #'flymake-diagnostic-text diags))
   (kiv-e2e--check (= (line-number-at-pos (flymake-diagnostic-beg d)) kiv-e2e--planted)
                   (format "the diagnostic on the planted line %d" kiv-e2e--planted)
                   (line-number-at-pos (flymake-diagnostic-beg d)))
   (kiv-e2e--check (equal (flymake-diagnostic-text d) (kiv-e2e--expect :diagnostic-text))
                   "the diagnostic's text" (flymake-diagnostic-text d))
   (kiv-e2e--check (equal (plist-get lsp :code) (kiv-e2e--expect :diagnostic-code))
                   "the diagnostic's code" (plist-get lsp :code))
   (kiv-e2e--check (eq (flymake-diagnostic-type d) (kiv-e2e--expect :diagnostic-type))
                   "the diagnostic's type" (flymake-diagnostic-type d)))
 nil)

;; Completion: what completion-at-point offers in a stream table.
(kiv-e2e-step
 (kiv-e2e--goto (kiv-e2e--expect :completion-line) (kiv-e2e--expect :completion-after))
 (forward-char (length (kiv-e2e--expect :completion-after)))
 (pcase (run-hook-with-args-until-success 'completion-at-point-functions)
   (`(,beg ,end ,table . ,_)
    (let* ((candidates (all-completions (buffer-substring beg end) table))
           (offered (car (member (kiv-e2e--expect :completion-offered) candidates)))
           (item (and offered (get-text-property 0 'eglot--lsp-item offered))))
      (when (kiv-e2e--check offered (format "completion offers %s" (kiv-e2e--expect :completion-offered))
                            candidates)
        (kiv-e2e--check (equal (plist-get (plist-get item :textEdit) :newText)
                               (kiv-e2e--expect :completion-new-text))
                        "completion inserts the key and `= '" item))
      (kiv-e2e--check (not (member (kiv-e2e--expect :completion-not-offered) candidates))
                      (format "completion leaves out %s, given already"
                              (kiv-e2e--expect :completion-not-offered)))))
   (got (kiv-e2e--fail "no completion at point" got)))
 nil)

;; Hover: what ElDoc gets from eglot on a key.
(kiv-e2e-step
 (kiv-e2e--goto (kiv-e2e--expect :hover-line) (kiv-e2e--expect :hover-on))
 (run-hook-wrapped 'eldoc-documentation-functions
                   (lambda (f)
                     (funcall f (lambda (doc &rest _) (when doc (push doc kiv-e2e--docs))))
                     nil))
 (cons "hover documentation" (lambda () kiv-e2e--docs)))

(kiv-e2e-step
 (dolist (m (kiv-e2e--expect :hover-mentions))
   (kiv-e2e--check (cl-some (lambda (doc) (string-search m doc)) kiv-e2e--docs)
                   (format "hover on %s mentions %s" (kiv-e2e--expect :hover-on) m) kiv-e2e--docs))
 nil)

;; Definition: M-. on a source buffer's name lands on that buffer's table.
(kiv-e2e-step
 (kiv-e2e--goto (kiv-e2e--expect :definition-line) (kiv-e2e--expect :definition-on))
 (call-interactively #'xref-find-definitions)
 (kiv-e2e--check (and (eq (current-buffer) kiv-e2e--buffer)
                      (string-search (kiv-e2e--expect :definition-target) (kiv-e2e--line)))
                 (format "M-. on %s lands on the line with %S" (kiv-e2e--expect :definition-on)
                         (kiv-e2e--expect :definition-target))
                 (list (buffer-name) (kiv-e2e--line)))
 nil)

;; References: M-? on that table lists the canvases that take it (with
;; RET at its prompt: the identifier at point).
(kiv-e2e-step
 (progn
   (kiv-e2e--check (kiv-e2e--capable :referencesProvider) "the server announces references" nil)
   (kiv-e2e--goto (kiv-e2e--expect :definition-target) "main")
   (let* ((xrefs (let ((xref-show-xrefs-function (lambda (fetcher _) (funcall fetcher))))
                   (xref-find-references (xref-backend-identifier-at-point (xref-find-backend)))))
          (lines (mapcar (lambda (x)
                           (let ((m (xref-location-marker (xref-item-location x))))
                             (cons (marker-buffer m) (kiv-e2e--line m))))
                         xrefs))
          (target (kiv-e2e--expect :references-target)))
     (kiv-e2e--check (cl-some (lambda (l) (string-search target (cdr l))) lines)
                     (format "M-? on the table lists the line with %S" target) lines)
     (kiv-e2e--check (cl-every (lambda (l)
                                 (and (eq (car l) kiv-e2e--buffer)
                                      (or (string-search target (cdr l))
                                          (string-search (kiv-e2e--expect :definition-target) (cdr l)))))
                               lines)
                     "M-? lists the table and the canvases that take it, nothing else" lines)))
 nil)

;; The quick fix of the finding, as M-x eglot-code-actions on it applies
;; it; the fixed text goes to the server once Emacs is idle and Flymake
;; clears.
(kiv-e2e-step
 (let* ((d (car (flymake-diagnostics)))
        (beg (flymake-diagnostic-beg d))
        (end (flymake-diagnostic-end d))
        (titles (mapcar (lambda (a) (plist-get a :title)) (eglot-code-actions beg end "quickfix"))))
   ;; One quick fix there: eglot applies it without asking which.
   (unless (equal titles (list (kiv-e2e--expect :fix-title)))
     (error "The quick fixes on the finding are %S, not only %S" titles (kiv-e2e--expect :fix-title)))
   (goto-char beg)
   (eglot-code-actions beg end "quickfix" t))
 (let ((original (nth (1- kiv-e2e--planted) (kiv-e2e--file-lines (getenv "KIV_E2E_ORIGINAL")))))
   (goto-char (point-min))
   (forward-line (1- kiv-e2e--planted))
   (kiv-e2e--check (equal (kiv-e2e--line) original) "the fixed line reads as in the example"
                   (kiv-e2e--line)))
 (cons "diagnostics cleared after the fix" (lambda () (null (flymake-diagnostics)))))

;; M-x eglot-shutdown: the server answers shutdown (eglot-shutdown fails
;; otherwise) and is gone.  Its exit status is not the server's: eglot
;; deletes the process right after sending exit.
(kiv-e2e-step
 (let ((process (jsonrpc--process kiv-e2e--server)))
   (eglot-shutdown kiv-e2e--server)
   (kiv-e2e--check (not (process-live-p process)) "the server has ended" (process-status process)))
 nil)

;;; The driver.

(defun kiv-e2e--finish ()
  "Write the result and end Emacs with it."
  (with-temp-file (getenv "KIV_E2E_RESULT")
    (insert (if kiv-e2e--failures
                (mapconcat (lambda (f) (concat "FAIL " f "\n")) (reverse kiv-e2e--failures) "")
              "pass\n")))
  (kill-emacs (if kiv-e2e--failures 1 0)))

(defun kiv-e2e--next ()
  "Have the command loop run the next step as its next command."
  (push 'kiv-e2e unread-command-events))

(defun kiv-e2e-step-command ()
  "Run the next step; when it waits, poll from a timer while Emacs is idle."
  (interactive)
  (set-buffer kiv-e2e--buffer)
  (let ((wait (condition-case err
                  (funcall (pop kiv-e2e--steps))
                (error (kiv-e2e--fail (error-message-string err))
                       (setq kiv-e2e--steps nil)))))
    (cond ((and (null kiv-e2e--steps) (null wait)) (kiv-e2e--finish))
          ((null wait) (kiv-e2e--next))
          (t
           (let ((end (+ (float-time) kiv-e2e-wait))
                 (timer nil))
             (setq timer
                   (run-with-timer
                    0.02 0.02
                    (lambda ()
                      (let ((done (with-current-buffer kiv-e2e--buffer (funcall (cdr wait)))))
                        (when (or done (> (float-time) end))
                          (cancel-timer timer)
                          (unless done
                            (kiv-e2e--fail (format "%s: not within %s s" (car wait) kiv-e2e-wait))
                            (setq kiv-e2e--steps nil))
                          (if kiv-e2e--steps (kiv-e2e--next) (kiv-e2e--finish))))))))))))

;; As `emacs FILE': the script is visited before the command loop starts.
(find-file (getenv "KIV_E2E_FILE"))
(setq kiv-e2e--buffer (current-buffer))
(global-set-key [kiv-e2e] #'kiv-e2e-step-command)
(kiv-e2e--next)

;;; emacs_lsp.el ends here
