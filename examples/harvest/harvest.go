// SPDX-License-Identifier: MIT

// Harvest keeps a file equal to the catalog of a server.
//
// Usage: harvest URL FILE [CSID]     for example: go run harvest.go http://localhost:8380/rdm copy.soif
//
// FILE has the descriptions in the order of their URLs. It is replaced when everything has arrived, and is also all
// that is remembered from one run to the next. Exit status: 0 FILE equals the catalog, 2 wrong usage, 3 FILE is as it was.
package main

import (
	"bytes"
	"errors"
	"fmt"
	"io"
	"io/fs"
	"math/rand"
	"net/http"
	"net/url"
	"os"
	"regexp"
	"sort"
	"strconv"
	"strings"
	"time"
)

const (
	overlap  = 5 * time.Minute // the second of a recent change may not be over, and indexes may show changes late
	attempts = 5
	rounds   = 5
)

var (
	// A compressed answer would not say how long it is.
	client    = http.Client{Timeout: 30 * time.Minute, Transport: &http.Transport{DisableCompression: true}}
	start     = regexp.MustCompile(`^@\S+ \{ (\S+)\n`)
	attribute = regexp.MustCompile(`^([^{\s]+)\{(\d+)\}:\t`)
)

// refused is an error after which another attempt would not help.
type refused struct{ reason string }

func (r refused) Error() string { return r.reason }

// description is a SOIF object: its attributes, and its bytes as they came.
type description struct {
	attributes map[string]string
	text       []byte
}

func (d description) changed() time.Time {
	t, _ := http.ParseTime(d.attributes["rd-last-changed"])
	return t
}

type catalog map[string]description // by URL

// next reads the first object of a text and returns its URL and the rest. Byte counts, not marks, end the values.
func next(text []byte) (address string, d description, rest []byte, err error) {
	text = bytes.TrimLeft(text, " \t\r\n")
	head := start.FindSubmatch(text)
	if head == nil {
		return "", d, nil, errors.New("the text is no SOIF")
	}
	d.attributes, rest = map[string]string{}, text[len(head[0]):]
	for found := attribute.FindSubmatch(rest); found != nil; found = attribute.FindSubmatch(rest) {
		size, err := strconv.Atoi(string(found[2]))
		rest = rest[len(found[0]):]
		if err != nil || size >= len(rest) || rest[size] != '\n' {
			return "", d, nil, fmt.Errorf("%s: the size of %s is wrong", head[1], found[1])
		}
		d.attributes[string(found[1])], rest = string(rest[:size]), rest[size+1:]
	}
	if !bytes.HasPrefix(rest, []byte("}\n")) {
		return "", d, nil, fmt.Errorf("%s: the object has no end", head[1])
	}
	rest = rest[2:]
	d.text = text[:len(text)-len(rest)]
	return string(head[1]), d, rest, nil
}

func parse(text []byte) (catalog, error) {
	all := catalog{}
	for len(bytes.TrimSpace(text)) > 0 {
		address, d, rest, err := next(text)
		if err != nil {
			return nil, err
		}
		all[address], text = d, rest
	}
	return all, nil
}

// verified returns the descriptions of an answer.
func verified(answer *http.Response, body []byte) (catalog, error) {
	if answer.Header.Get("Content-Type") != "application/x-rdm" || answer.ContentLength < 0 {
		return nil, refused{"this is no RDM message of a known length"}
	}
	_, header, rest, err := next(body)
	if err != nil {
		return nil, err
	}
	message := strings.TrimSpace(header.attributes["rdm-error-message"])
	if message != "" && message != "0 results." || header.attributes["rdm-type"] != "rd-response" {
		return nil, refused{"the server does not send descriptions: " + message}
	}
	return parse(rest)
}

// attempt sends a query once. A pause that the server names is returned with the error.
func attempt(target string) (now time.Time, all catalog, pause time.Duration, err error) {
	answer, err := client.Get(target)
	if err != nil {
		return now, nil, 0, err
	}
	defer answer.Body.Close()
	if busy := answer.StatusCode; busy == 408 || busy == 429 || busy >= 500 {
		seconds, _ := strconv.Atoi(answer.Header.Get("Retry-After"))
		return now, nil, time.Duration(seconds) * time.Second, errors.New(answer.Status)
	} else if busy != 200 {
		return now, nil, 0, refused{answer.Status}
	}
	body, err := io.ReadAll(answer.Body) // fails if less than the announced length arrives
	if err != nil {
		return now, nil, 0, err
	}
	now, _ = http.ParseTime(answer.Header.Get("Date"))
	all, err = verified(answer, body)
	return now, all, 0, err
}

// ask sends a query, again after a pause if the server is busy or the answer is cut.
func ask(base, csid, scope, attributes string) (now time.Time, all catalog, err error) {
	query := url.Values{"ql": {"gatherer"}, "scope": {scope}}
	if csid != "" {
		query.Set("csid", csid)
	}
	if attributes != "" {
		query.Set("view-attributes", attributes)
	}
	for i := 0; i < attempts; i++ {
		var pause time.Duration
		now, all, pause, err = attempt(base + "/rd-request?" + query.Encode())
		if err == nil || errors.As(err, new(refused)) {
			return now, all, err
		}
		if pause == 0 {
			pause = time.Duration((0.5 + rand.Float64()/2) * float64(time.Second<<i))
		}
		time.Sleep(pause)
	}
	return now, all, fmt.Errorf("%d attempts failed, the last one: %w", attempts, err)
}

// missing returns the descriptions that are wanted, and others.
func missing(base, csid string, wanted catalog) (catalog, error) {
	var oldest time.Time
	for _, d := range wanted {
		if t := d.changed(); oldest.IsZero() || t.Before(oldest) {
			oldest = t
		}
	}
	_, sent, err := ask(base, csid, "since "+oldest.Add(-overlap).UTC().Format(http.TimeFormat), "")
	for address := range wanted {
		// A search that narrows to the newest description answers nothing.
		if _, found := sent[address]; err == nil && !found {
			_, sent, err = ask(base, csid, "all", "")
			break
		}
	}
	return sent, err
}

// update makes the held descriptions equal to the catalog. It returns how many were sent and how many are gone.
func update(base, csid string, held catalog) (int, int, error) {
	sent, gone := map[string]bool{}, 0
	for i := 0; i < rounds; i++ {
		now, listed, err := ask(base, csid, "all", "rd-last-changed")
		if err != nil {
			return 0, 0, err
		}
		if len(listed) < len(held)/2 {
			return 0, 0, fmt.Errorf("%d descriptions are held, %d are left; remove the copy if that is right",
				len(held), len(listed))
		}
		for address := range held {
			if _, found := listed[address]; !found {
				delete(held, address)
				gone++
			}
		}
		wanted := catalog{}
		for address, d := range listed {
			copied, found := held[address]
			if !found || !copied.changed().Equal(d.changed()) || !sent[address] && d.changed().After(now.Add(-overlap)) {
				wanted[address] = d
			}
		}
		if len(wanted) == 0 {
			return len(sent), gone, nil
		}
		answer, err := missing(base, csid, wanted)
		if err != nil {
			return 0, 0, err
		}
		for address, d := range answer {
			held[address], sent[address] = d, true
		}
	}
	return 0, 0, errors.New("the catalog changes faster than it can be harvested")
}

func readCopy(path string) (catalog, error) {
	text, err := os.ReadFile(path)
	if err != nil && !errors.Is(err, fs.ErrNotExist) {
		return nil, err
	}
	return parse(text)
}

func writeCopy(path string, held catalog) error {
	addresses := make([]string, 0, len(held))
	for address := range held {
		addresses = append(addresses, address)
	}
	sort.Strings(addresses)
	file, err := os.Create(path + ".new")
	if err != nil {
		return err
	}
	defer file.Close()
	for _, address := range addresses {
		if _, err := file.Write(held[address].text); err != nil {
			return err
		}
	}
	if err := file.Sync(); err != nil {
		return err
	}
	return os.Rename(path+".new", path)
}

func harvest(base, path, csid string) (string, error) {
	held, err := readCopy(path)
	if err != nil {
		return "", err
	}
	sent, gone, err := update(base, csid, held)
	if err != nil {
		return "", err
	}
	return fmt.Sprintf("%d sent, %d gone, %d held", sent, gone, len(held)), writeCopy(path, held)
}

func main() {
	arguments := append(os.Args, "")
	if len(os.Args) < 3 || len(os.Args) > 4 {
		fmt.Fprintln(os.Stderr, "usage: harvest URL FILE [CSID]")
		os.Exit(2)
	}
	summary, err := harvest(arguments[1], arguments[2], arguments[3])
	if err != nil {
		fmt.Fprintln(os.Stderr, "harvest:", err)
		os.Exit(3)
	}
	fmt.Println(summary)
}
